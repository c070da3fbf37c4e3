// SPDX-License-Identifier: Apache-2.0
//
// Faults that a test cannot bring about from outside, put in the way of the
// C library's calls:
//   KZA_FAIL_FORK=n       the nth fork of the family fails with EAGAIN
//   KZA_WAIT_STATUS=n     children are reported with this wait status
//   KZA_WAIT_THROW=type   waiting for a child throws a value of this type
//   KZA_SIGNAL_LOG=file   changes of dispositions and thread masks are noted

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <dlfcn.h>
#include <sys/types.h>

#define KZA_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

template <typename Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int Number(const char* text)
{
    return static_cast<int>(strtol(text, nullptr, 10));
}

void Throw(const char* type)
{
    if (strcmp(type, "runtime_error") == 0)
        throw std::runtime_error("what it was");
    if (strcmp(type, "text") == 0)
        // NOLINTNEXTLINE(cert-err09-cpp,cert-err61-cpp): what it is here for
        throw static_cast<const char*>("a text");
    if (strcmp(type, "wide text") == 0)
        // NOLINTNEXTLINE(cert-err09-cpp,cert-err61-cpp): what it is here for
        throw static_cast<const wchar_t*>(L"a wide text");
    if (strcmp(type, "int") == 0)
        throw -1;
    if (strcmp(type, "unsigned int") == 0)
        throw 4294967295U;
    if (strcmp(type, "long") == 0)
        throw -2L;
    if (strcmp(type, "unsigned long") == 0)
        throw 18446744073709551615UL;
    if (strcmp(type, "long long") == 0)
        throw -3LL;
    if (strcmp(type, "unsigned long long") == 0)
        throw 18446744073709551614ULL;
    throw 1.5;
}

int CountOf(const sigset_t& set)
{
    int count = 0;
    for (int number = 1; number <= SIGRTMAX; ++number)
        count += sigismember(&set, number) == 1 ? 1 : 0;
    return count;
}

// Adds a line to the file in KZA_SIGNAL_LOG.
__attribute__((format(printf, 1, 2))) void Note(const char* format, ...)
{
    const char* const path = getenv("KZA_SIGNAL_LOG");
    FILE* const file = path == nullptr ? nullptr : fopen(path, "a");
    if (file == nullptr)
        return;
    va_list values;
    va_start(values, format);
    vfprintf(file, format, values);
    va_end(values);
    fclose(file);
}

} // namespace

KZA_EXPORT pid_t fork() noexcept
{
    static int count = 0;
    const char* const failing = getenv("KZA_FAIL_FORK");
    if (failing != nullptr && ++count == Number(failing))
    {
        errno = EAGAIN;
        return -1;
    }
    return Next<pid_t()>("fork")();
}

KZA_EXPORT pid_t waitpid(pid_t pid, int* status, int options)
{
    if (const char* const type = getenv("KZA_WAIT_THROW"))
        Throw(type);
    const pid_t ended =
        Next<pid_t(pid_t, int*, int)>("waitpid")(pid, status, options);
    const char* const instead = getenv("KZA_WAIT_STATUS");
    if (ended > 0 && instead != nullptr)
        *status = Number(instead);
    return ended;
}

KZA_EXPORT int sigaction(int number,
                         const struct sigaction* action,
                         struct sigaction* previous) noexcept
{
    if (action != nullptr)
        Note("sigaction %d %s flags %x mask %d\n", number,
             action->sa_handler == SIG_IGN   ? "ignore"
             : action->sa_handler == SIG_DFL ? "default"
                                             : "handler",
             static_cast<unsigned>(action->sa_flags), CountOf(action->sa_mask));
    return Next<int(int, const struct sigaction*, struct sigaction*)>(
        "sigaction")(number, action, previous);
}

KZA_EXPORT int pthread_sigmask(int how,
                               const sigset_t* set,
                               sigset_t* previous) noexcept
{
    if (set != nullptr && how == SIG_BLOCK)
        for (int number = 1; number < SIGRTMIN; ++number)
            if (sigismember(set, number) == 1)
                Note("block %d\n", number);
    return Next<int(int, const sigset_t*, sigset_t*)>("pthread_sigmask")(
        how, set, previous);
}
