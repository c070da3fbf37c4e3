// SPDX-License-Identifier: Apache-2.0
//
// Faults that a test cannot bring about from outside, put in the way of the
// C library's calls:
//   KZA_FAIL_FORK=n       the nth fork of the family fails with EAGAIN
//   KZA_FAIL_LOCK=n       locking a file fails with this error number
//   KZA_WAIT_THROW=type   waiting for a child throws a value of this type
//   KZA_WAIT_OTHER=1      the first wait tells of another process
//   KZA_SIGNAL_LOG=file   changes of dispositions and thread masks are noted,
//                         each with the process's id
//   KZA_STEP_LOG=file     the steps of a daemon and of the clean-up are noted
//   KZA_HOLD=call         setsid, rename, epoll_create, sigaction for SIGINT or
//                         the write of the record of an interrupted wait waits
//   KZA_HOLD_FILE=file    until the file is there; <file>.held says it waits

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

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

// Adds a line to the file that the variable names.
__attribute__((format(printf, 2, 3))) void Note(const char* variable,
                                                const char* format,
                                                ...)
{
    const char* const path = getenv(variable);
    FILE* const file = path == nullptr ? nullptr : fopen(path, "a");
    if (file == nullptr)
        return;
    va_list values;
    va_start(values, format);
    vfprintf(file, format, values);
    va_end(values);
    fclose(file);
}

void Hold(const char* call)
{
    const char* const held = getenv("KZA_HOLD");
    const char* const file = getenv("KZA_HOLD_FILE");
    if (held == nullptr || file == nullptr || strcmp(held, call) != 0)
        return;
    const std::string mark = std::string(file) + ".held";
    close(open(mark.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    while (access(file, F_OK) != 0)
        usleep(1000);
}

} // namespace

KZA_EXPORT pid_t fork() noexcept
{
    static int count = 0;
    Note("KZA_STEP_LOG", "fork\n");
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
    static bool hasTold = false;
    if (getenv("KZA_WAIT_OTHER") != nullptr && !hasTold)
    {
        hasTold = true;
        *status = 0;
        return pid + 1;
    }
    return Next<pid_t(pid_t, int*, int)>("waitpid")(pid, status, options);
}

KZA_EXPORT int sigaction(int number,
                         const struct sigaction* action,
                         struct sigaction* previous) noexcept
{
    if (action != nullptr && number == SIGINT)
        Hold("sigaction");
    if (action != nullptr)
        Note("KZA_SIGNAL_LOG", "%d sigaction %d %s flags %x mask %d\n",
             getpid(), number,
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
                Note("KZA_SIGNAL_LOG", "%d block %d\n", getpid(), number);
    return Next<int(int, const sigset_t*, sigset_t*)>("pthread_sigmask")(
        how, set, previous);
}

KZA_EXPORT pid_t setsid() noexcept
{
    Note("KZA_STEP_LOG", "setsid\n");
    Hold("setsid");
    return Next<pid_t()>("setsid")();
}

KZA_EXPORT int chdir(const char* path) noexcept
{
    Note("KZA_STEP_LOG", "chdir '%s'\n", path);
    return Next<int(const char*)>("chdir")(path);
}

// What freopen() is in a program with large files.
KZA_EXPORT FILE* freopen64(const char* path, const char* mode, FILE* stream)
{
    Note("KZA_STEP_LOG", "freopen %s %s %d\n", path, mode, fileno(stream));
    return Next<FILE*(const char*, const char*, FILE*)>("freopen64")(path, mode,
                                                                     stream);
}

// What fcntl() is in a program with large files. All its commands take one
// argument at most.
KZA_EXPORT int fcntl64(int file, int command, ...)
{
    va_list values;
    va_start(values, command);
    void* const argument = va_arg(values, void*);
    va_end(values);
    const char* const error = getenv("KZA_FAIL_LOCK");
    if (command == F_OFD_SETLK && error != nullptr)
    {
        errno = Number(error);
        return -1;
    }
    return Next<int(int, int, void*)>("fcntl64")(file, command, argument);
}

KZA_EXPORT int rename(const char* from, const char* to) noexcept
{
    Note("KZA_STEP_LOG", "rename to %s\n", to);
    Hold("rename");
    return Next<int(const char*, const char*)>("rename")(from, to);
}

KZA_EXPORT int epoll_create(int size) noexcept
{
    Hold("epoll_create");
    return Next<int(int)>("epoll_create")(size);
}

KZA_EXPORT ssize_t write(int file, const void* text, size_t size)
{
    constexpr char kRecord[] = "child process interrupted";
    if (memmem(text, size, kRecord, strlen(kRecord)) != nullptr)
        Hold("write");
    return Next<ssize_t(int, const void*, size_t)>("write")(file, text, size);
}

// The first step of the clean-up, KzaCore::OpenSSLThreadShutdown().
KZA_EXPORT void _ZN7KzaCore21OpenSSLThreadShutdownEv()
{
    Note("KZA_STEP_LOG", "clean-up on the %s thread\n",
         gettid() == getpid() ? "main" : "script");
    Next<void()>("_ZN7KzaCore21OpenSSLThreadShutdownEv")();
}
