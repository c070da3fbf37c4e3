// SPDX-License-Identifier: Apache-2.0
//
// The parameters of a dump, which InitCrashHandler() settles before any crash,
// and the function by which each system arms the process with them.
//
// Threads: ArmCrashDumps() belongs to the main thread, before others exist.

#pragma once

#include <climits>

#include <fcntl.h>

namespace KzaCore
{

/// Has fixed buffers, because the code that makes a dump may neither allocate
/// nor trust the heap.
struct CCrashPlan
{
    int directoryFd;                // open; kept for the life of the process
    char directory[PATH_MAX];       // absolute
    char fileName[NAME_MAX + 1];    // of the dump, inside the directory
    char application[NAME_MAX + 1]; // UTF-8
    char version[64];               // of the agent
    bool full;
};

/// The flags by which the directory is opened. A symbolic link in its place is
/// refused: dumps contain secrets, and the link could lead to a place that
/// another user chose.
inline constexpr int kOpenCrashDirectory =
    O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// The suffix of the dump before the last one.
inline constexpr char kPreviousDumpSuffix[] = ".1";

/// The suffix of a dump being written: a dot, the crashing process's id, and
/// this.
inline constexpr char kUnfinishedDumpSuffix[] = ".tmp";

/// Arms the process. Where dumps cannot be made, logs a warning and leaves the
/// system's own handling of a crash. A second call replaces the plan.
void ArmCrashDumps(const CCrashPlan& plan);

} // namespace KzaCore
