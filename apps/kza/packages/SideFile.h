// SPDX-License-Identifier: Apache-2.0
//
// The version side file of an extension archive, as a file.
//
// A text whose first line that begins with "version:" holds
// major.minor.patch-build; every other line is ignored. LF, CR LF and CR end a
// line; a byte-order mark names UTF-8, UTF-16 or UTF-32, without one the text
// is UTF-8.
//
// Threads: any.

#pragma once

#include <wx/string.h>

/// The numbers that are compared. One that does not fit is the nearest that
/// does, and so is never mistaken for another number.
struct CExtensionVersion
{
    int major = 0;
    int minor = 0;
    int patch = 0;
};

enum class ESideFile
{
    Missing,       ///< no regular file of that name
    NoVersionLine, ///< no line begins with "version:", or it cannot be read
    Malformed,     ///< the first such line holds fewer than four numbers
    Good           ///< the version is known
};

/// Reads a side file up to the end of its version and no further, as a stream:
/// neither its size nor that of a line counts. Waits for no pipe and logs
/// nothing.
///
/// In the version line, white space may stand before each number but not
/// before the "." or "-", a number may have a sign, and what follows the fourth
/// number is ignored. The build, the fourth number, may be of any size.
///
/// \param path     The side file itself.
/// \param version  Set when the answer is Good, else undefined.
[[nodiscard]] ESideFile ReadSideFile(const wxString& path,
                                     CExtensionVersion& version);
