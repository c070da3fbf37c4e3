// SPDX-License-Identifier: Apache-2.0
//
// The kernel's thread number, as ps, top and debuggers show it.

#include "base/ThreadId.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace KzaCore
{

long CurrentThreadId()
{
    return syscall(SYS_gettid);
}

} // namespace KzaCore
