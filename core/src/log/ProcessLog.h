// SPDX-License-Identifier: Apache-2.0
//
// The one sink of the process's log records, behind CLog2Disk, LogToDisk() and
// LogTrace().
//
// Threads: any.

#pragma once

#include "log/DiskLog.h"

namespace KzaCore
{

/// The sink of the process; never destroyed, so that a thread may log while
/// the process ends. The first call registers the log's handlers for forks and
/// for the end of the process.
CDiskLog& ProcessLog();

} // namespace KzaCore
