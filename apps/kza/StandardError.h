// SPDX-License-Identifier: Apache-2.0
//
// Messages on the standard error stream.

#pragma once

#include <wx/string.h>

/// Writes the text as UTF-8, as it is: without a line break of its own.
///
/// The framework's formatted output would make the C stream a wide one, after
/// which nothing that a script writes to io.stderr appears.
void WriteToStandardError(const wxString& text);
