// SPDX-License-Identifier: Apache-2.0
//
// Waiting for the disk, as the system offers it.
//
// Threads: any.

#pragma once

namespace KzaCore
{

/// Waits until the file system of an open file is on disk.
///
/// \return false with errno set when the system reports an error.
bool SyncDescriptor(int fd);

} // namespace KzaCore
