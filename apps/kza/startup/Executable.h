// SPDX-License-Identifier: Apache-2.0
//
// The executable's path, from which the installation's directories follow, and
// other paths on the command line.
//
// Threads: the main thread, during start-up, because relative paths depend on
// the current directory.

#pragma once

#include <wx/string.h>

class wxFileName;

/// The executable's path: absolute, "." and ".." resolved, "~" expanded.
///
/// \param firstWord  The first word of the command line.
[[nodiscard]] wxFileName ExecutableFrom(const wxString& firstWord);

/// The executable's directory when it must not be trusted, else empty.
///
/// A first word without a slash was found through PATH, but ExecutableFrom()
/// makes it a file in the current directory. Unless the program runs from
/// there, any user may have made the files in that directory.
///
/// \param firstWord  The first word of the command line.
[[nodiscard]] wxString UntrustedDirectory(const wxString& firstWord);

/// A directory's path made absolute in the same way as the executable's,
/// without a trailing separator.
[[nodiscard]] wxString NormalizedDirectory(wxFileName directory);
