// SPDX-License-Identifier: Apache-2.0
//
// POSIX gives no number of a thread; its handle tells the threads of a process
// apart as well, and on Solaris it is the number that pstack shows.

#include "base/ThreadId.h"

#include <pthread.h>

#include <cstdint>

namespace KzaCore
{

long CurrentThreadId()
{
    // A pointer on some systems, an integer on others.
    return static_cast<long>((std::uintptr_t)pthread_self());
}

} // namespace KzaCore
