// SPDX-License-Identifier: Apache-2.0
//
// Facts that the system gives about any process.
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
    std::string executable; // path; empty when the system does not give it
    char state = '?';       // `Z` for a zombie; `?` when unknown
    double started = 0;     // seconds since the epoch, by the present clock
    double cpuSeconds = 0;  // in user and system mode, by all its threads

    // Unset or empty when the system does not give them.
    std::optional<std::int64_t> residentKiB;
    std::optional<int> threads;
    std::string directory;          // the process's current directory
    std::vector<std::string> words; // of its command line
};

/// Unset when there is no process of this number.
[[nodiscard]] std::optional<CProcessInfo> InfoOfProcess(pid_t pid);

/// The children of a process, zombies too; in no order.
[[nodiscard]] std::vector<pid_t> ChildrenOfProcess(pid_t parent);

/// The processes that run an executable in a directory; in no order. Leaves out
/// processes whose executable or directory the system does not give. The files
/// themselves are compared and not their paths: a process in a container may
/// run another file of the same path.
///
/// \param executable  Absolute, without symbolic links. A process also runs it
///                    when the file has been replaced since.
/// \param directory   Their current directory; empty for any.
[[nodiscard]] std::vector<pid_t> ProcessesOf(const std::string& executable,
                                             const std::string& directory);

} // namespace KzaCore
