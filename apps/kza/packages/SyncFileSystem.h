// SPDX-License-Identifier: Apache-2.0
//
// Getting on the disk what was written.
//
// Threads: any.

#pragma once

class wxFileName;

/// Waits until all that was written to the file system of a directory is on
/// disk. One such wait costs less than one for each of many files.
///
/// \return false when the system reports an error; the reason is logged.
bool SyncFileSystem(const wxFileName& directory);
