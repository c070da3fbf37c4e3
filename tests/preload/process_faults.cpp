// SPDX-License-Identifier: Apache-2.0
//
// Faults that a test cannot bring about from outside, put in the way of the
// C library's calls:
//   KZA_FAIL_FORK=n       the nth fork of the family fails with EAGAIN
//   KZA_WAIT_STATUS=n     children are reported with this wait status
//   KZA_WAIT_THROW=type   waiting for a child throws a value of this type

#include <cerrno>
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

void Throw(const char* type)
{
    if (strcmp(type, "runtime_error") == 0)
        throw std::runtime_error("what it was");
    if (strcmp(type, "text") == 0)
        throw static_cast<const char*>("a text");
    if (strcmp(type, "wide text") == 0)
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

} // namespace

KZA_EXPORT pid_t fork() noexcept
{
    static int count = 0;
    const char* const failing = getenv("KZA_FAIL_FORK");
    if (failing != nullptr && ++count == atoi(failing))
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
        *status = atoi(instead);
    return ended;
}
