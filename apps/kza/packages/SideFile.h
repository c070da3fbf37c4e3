// SPDX-License-Identifier: Apache-2.0
//
// Reading the side file with the version of an extension archive.
//
// A side file is a text whose first line that begins with "version:" contains
// major.minor.patch-build; every other line is ignored. LF, CR LF and CR end a
// line. A byte-order mark selects UTF-8, UTF-16 or UTF-32; without one the text
// is UTF-8.
//
// Threads: any.

#pragma once

#include "kza_core/Owner.h"

#include <wx/string.h>

/// The numbers that are compared. A number that does not fit is replaced by the
/// nearest one that does, so it never equals a version in use.
struct CExtensionVersion
{
    int major = 0;
    int minor = 0;
    int patch = 0;
};

enum class ESideFile
{
    Missing,       ///< no regular file of that name
    Refused,       ///< others can change it
    NoVersionLine, ///< no line begins with "version:", or reading fails
    Malformed,     ///< the first such line has fewer than four numbers
    Good           ///< the version is known
};

/// Reads a side file up to the end of its version, as a stream: the file and
/// its lines may have any size. Does not wait for a pipe. Logs nothing but that
/// others can change it.
///
/// In the version line, white space may stand before each number but not
/// before the "." or "-", a number may have a sign, and text after the fourth
/// number is ignored. The build, the fourth number, may be of any size.
///
/// \param path     The side file itself.
/// \param owners   When others can change it.
/// \param version  Set when the answer is Good, else undefined.
[[nodiscard]] ESideFile ReadSideFile(const wxString& path,
                                     KzaCore::EOwnerRule owners,
                                     CExtensionVersion& version);
