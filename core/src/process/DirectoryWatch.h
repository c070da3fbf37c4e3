// SPDX-License-Identifier: Apache-2.0
//
// Notifications by the system about changes in directories.
//
// Threads: any.

#pragma once

namespace KzaCore
{

/// Opens a watch that has no directory yet.
///
/// \return a descriptor, owned by the caller, which becomes readable after a
///         change; -1 with errno set, ENOSYS where the system has no such
///         service.
[[nodiscard]] int OpenDirectoryWatch();

/// Adds a directory, without the directories below it. A file in it that was
/// made, written, renamed or removed is a change.
///
/// \return false with errno set when it cannot be watched.
[[nodiscard]] bool WatchDirectory(int watch, const char* directory);

/// Drops the changes so far, so that the descriptor becomes readable again only
/// after a later one.
void ForgetChanges(int watch);

} // namespace KzaCore
