// SPDX-License-Identifier: Apache-2.0
//
// Paths that the command line names: the executable's above all, from which
// the installation's directories follow.
//
// Threads: the main thread, during start-up: relative paths depend on the
// current directory.

#pragma once

#include <wx/string.h>

class wxFileName;

/// The executable's path: absolute, "." and ".." resolved, "~" expanded.
///
/// \param firstWord  As the process was given it.
[[nodiscard]] wxFileName ExecutableFrom(const wxString& firstWord);

/// The executable's directory when nothing may be taken from it, else empty.
///
/// A first word without a slash was found through PATH, but names a file in the
/// current directory all the same. Unless the program runs from there, any user
/// may have made what lies in that directory.
///
/// \param firstWord  As the process was given it.
[[nodiscard]] wxString UntrustedDirectory(const wxString& firstWord);

/// A directory's path made absolute like the executable's, without a trailing
/// separator.
[[nodiscard]] wxString NormalizedDirectory(wxFileName directory);
