// SPDX-License-Identifier: Apache-2.0
//
// What InitCrashHandler() settles before anything goes wrong, and the one
// thing that each system does with it.
//
// Threads: ArmCrashDumps() belongs to the main thread, before others exist.

#pragma once

#include <climits>

#include <fcntl.h>

namespace KzaCore
{

/// Fixed buffers, because the reader may neither allocate nor trust the heap.
struct CCrashPlan
{
    int directoryFd;                // open; kept for the life of the process
    char directory[PATH_MAX];       // absolute
    char fileName[NAME_MAX + 1];    // of the dump, inside the directory
    char application[NAME_MAX + 1]; // UTF-8
    char version[64];               // of the agent
    bool full;
};

/// How the directory is opened. A symbolic link in its place is refused: dumps
/// hold secrets and would go where another user chose.
inline constexpr int kOpenCrashDirectory =
    O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// The suffix of the dump before the last one.
inline constexpr char kPreviousDumpSuffix[] = ".1";

/// The suffix of a dump being written: a dot, the crashing process's id, and
/// this.
inline constexpr char kUnfinishedDumpSuffix[] = ".tmp";

/// Arms the process; where dumps cannot be made, says so in the log and lets
/// the system do what it does. A second call replaces the plan.
void ArmCrashDumps(const CCrashPlan& plan);

} // namespace KzaCore
