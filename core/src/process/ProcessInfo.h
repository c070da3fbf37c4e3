// SPDX-License-Identifier: Apache-2.0
//
// What the system tells of any process.
//
// Threads: any.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KzaCore
{

struct CProcessInfo
{
    pid_t parent = 0;
    std::string name;       // of its program, perhaps cut short
    std::string executable; // path; empty when the system does not tell us
    char state = '?';       // `Z` for one that has ended; `?` when unknown
    double started = 0;     // seconds since the epoch; by the clock of today
    double cpuSeconds = 0;  // in user and system mode, by all its threads
    std::optional<std::int64_t> residentKiB;

    // Empty or unset when the system does not tell us.
    std::optional<int> threads;
    std::string directory; // its current one
    std::vector<std::string> words;
};

/// Unset when there is no process of this number.
[[nodiscard]] std::optional<CProcessInfo> InfoOfProcess(pid_t pid);

/// The processes whose parent this is, zombies too; in no order.
[[nodiscard]] std::vector<pid_t> ChildrenOfProcess(pid_t parent);

/// The processes that run an executable in a directory; in no order. Without
/// those of which we are not told either. What these are is told by the files
/// themselves: a process in a container may run another file of the same path.
///
/// \param executable  Absolute, without symbolic links. A process also runs it
///                    when the file has been replaced since.
/// \param directory   Their current directory; empty for any.
[[nodiscard]] std::vector<pid_t> ProcessesOf(const std::string& executable,
                                             const std::string& directory);

} // namespace KzaCore
