// SPDX-License-Identifier: Apache-2.0
//
// Gives every thread of the process a crash stack, also those that libraries
// and Lua's C modules start: only the thread itself can ask for one, and a
// thread without one that overflows its stack leaves no dump.
//
// So this library's pthread_create stands before the system's: the executable
// names the library before libc, and everyone's calls come here first.
//
// Threads: any.

#include "crash/CrashStack.h"

#include "kza_core/Export.h"

#include <cerrno>
#include <memory>
#include <new>

#include <dlfcn.h>
#include <pthread.h>

namespace
{

struct ThreadStart
{
    void* (*routine)(void*);
    void* argument;
};

// Not noexcept: the system unwinds this frame when a thread is cancelled.
void* StartWithCrashStack(void* argument)
{
    const ThreadStart start = *static_cast<ThreadStart*>(argument);
    delete static_cast<ThreadStart*>(argument);
    const KzaCore::CCrashStack crashStack;
    return start.routine(start.argument);
}

using CreateThread = decltype(&pthread_create);

CreateThread NextCreateThread()
{
    static const auto next =
        reinterpret_cast<CreateThread>(dlsym(RTLD_NEXT, "pthread_create"));
    return next;
}

// Looked for as the library is loaded: the search reads the tables of every
// library, and each forked worker would have to fetch them anew.
[[maybe_unused]] const CreateThread s_next = NextCreateThread();

} // namespace

// As the system's, of the same contract.
extern "C" KZA_API int pthread_create(pthread_t* thread,
                                      const pthread_attr_t* attributes,
                                      void* (*routine)(void*),
                                      void* argument)
{
    auto start = std::unique_ptr<ThreadStart>(
        new (std::nothrow) ThreadStart{routine, argument});
    if (start == nullptr)
        return EAGAIN;
    const int error = NextCreateThread()(thread, attributes,
                                         StartWithCrashStack, start.get());
    if (error == 0)
        (void)start.release(); // the thread deletes it
    return error;
}
