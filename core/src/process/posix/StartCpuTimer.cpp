// SPDX-License-Identifier: Apache-2.0
//
// POSIX has no timer whose signal goes to one thread.

#include "process/CpuTimer.h"

#include <cerrno>

namespace KzaCore
{

bool StartCpuTimer(std::chrono::nanoseconds /*period*/)
{
    errno = ENOSYS;
    return false;
}

} // namespace KzaCore
