// SPDX-License-Identifier: Apache-2.0
//
// The version side file of an extension archive.
//
// A text file beside the archive, named like it with ".version" appended. Its
// first line that begins with "version:" holds major.minor.patch-build; every
// other line is ignored.

#pragma once

#include <wx/string.h>

class wxInputStream;

struct SExtensionVersion
{
    int major = 0;
    int minor = 0;
    int patch = 0;
    int build = 0;
};

/// The rest of the first version line of a side file.
///
/// \param text  The file; LF, CR LF and CR end a line, a byte-order mark names
///              the encoding, else UTF-8.
/// \param rest  Out: what follows "version:" in that line.
///
/// \return false when no line begins with "version:".
bool FindVersionLine(wxInputStream& text, wxString& rest);

/// Reads what follows "version:". White space may stand before each number but
/// not before the "." or "-"; what follows the fourth number is ignored.
///
/// \return false when there are fewer than four numbers.
bool ParseExtensionVersion(const wxString& rest, SExtensionVersion& version);
