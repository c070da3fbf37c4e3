// SPDX-License-Identifier: Apache-2.0
//
// Notes of the system that something in a directory has changed.
//
// Threads: any.

#pragma once

namespace KzaCore
{

/// Opens a watch that has no directory yet.
///
/// \return a descriptor, owned by the caller, which can be read when something
///         has changed; -1 with errno set, ENOSYS where the system has no such
///         service.
[[nodiscard]] int OpenDirectoryWatch();

/// Adds a directory, not what lies in directories below it. A file in it that
/// was made, written, renamed or removed is a change.
///
/// \return false with errno set when it cannot be watched.
[[nodiscard]] bool WatchDirectory(int watch, const char* directory);

/// Forgets the changes so far, so that the descriptor tells of later ones.
void ForgetChanges(int watch);

} // namespace KzaCore
