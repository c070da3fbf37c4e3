// SPDX-License-Identifier: Apache-2.0
//
// Messages on the standard error stream.

#pragma once

#include <wx/string.h>

/// Writes the text as UTF-8, without adding a line break.
///
/// The framework's formatted output must not be used: it would make the C
/// stream a wide one, and the output of a script to io.stderr would be lost.
void WriteToStandardError(const wxString& text);
