// SPDX-License-Identifier: Apache-2.0
//
// Paths that the command line names: the executable's above all, from which
// the installation's directories follow.
//
// Threads: the main thread, during start-up: relative paths depend on the
// current directory.

#pragma once

class wxFileName;
class wxString;

/// The executable's path: absolute, "." and ".." resolved, "~" expanded.
///
/// \param firstWord  As the process was given it.
[[nodiscard]] wxFileName ExecutableFrom(const wxString& firstWord);

/// The directory's path likewise, without a trailing separator.
[[nodiscard]] wxString NormalizedDirectory(wxFileName directory);
