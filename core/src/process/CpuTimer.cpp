// SPDX-License-Identifier: Apache-2.0

#include "process/CpuTimer.h"

#include <ctime>

namespace KzaCore
{

std::chrono::nanoseconds ThreadCpuTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) +
           std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace KzaCore
