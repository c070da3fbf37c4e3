// SPDX-License-Identifier: Apache-2.0

#include "StandardError.h"

#include <cstdio>

void WriteToStandardError(const wxString& text)
{
    const wxScopedCharBuffer bytes = text.utf8_str();
    fwrite(bytes.data(), 1, bytes.length(), stderr);
}
