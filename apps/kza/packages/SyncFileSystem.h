// SPDX-License-Identifier: Apache-2.0
//
// Waiting until written files are on disk.
//
// Threads: any.

#pragma once

class wxFileName;

/// Waits until all files of the directory's file system are on disk. One such
/// wait takes less time than one for each of many files.
///
/// \return false when the system reports an error; the reason is logged.
bool SyncFileSystem(const wxFileName& directory);
