// SPDX-License-Identifier: Apache-2.0
//
// Whether a process sleeps until something happens, or until a time.

#pragma once

#include "support/TempDir.h"

#include <sstream>
#include <string>
#include <sys/types.h>

namespace TestSupport
{

/// The time-out of the call for events that the process's main thread is in, as
/// the kernel shows it: the number of the call, then its arguments, of which
/// the time-out is the fourth. Empty when the thread is not in a call.
inline std::string TimeOutOfWait(pid_t pid)
{
    std::istringstream call(
        ReadFile("/proc/" + std::to_string(pid) + "/syscall"));
    std::string word;
    for (int i = 0; i < 5; ++i)
        if (!(call >> word))
            return {};
    return word;
}

inline constexpr char kForEver[] = "0xffffffff"; // -1

} // namespace TestSupport
