// SPDX-License-Identifier: Apache-2.0
//
// Ways for a process to die of a fault.
//
// Threads: any. The sanitizers look away from what is done here on purpose.

#pragma once

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

#if defined(__clang__)
#define KZA_FAULT                                                              \
    __attribute__((noinline, no_sanitize("address", "undefined", "thread")))
#else
#define KZA_FAULT                                                              \
    __attribute__((noinline, no_sanitize_address, no_sanitize_undefined,       \
                   no_sanitize_thread))
#endif

namespace TestSupport
{

/// Where FaultSegv() writes: an address that no process has mapped.
inline constexpr std::size_t kFaultAddress = 0x1230;

/// Writes where nothing is mapped: SIGSEGV.
KZA_FAULT inline void FaultSegv()
{
    std::size_t address = kFaultAddress;
    asm volatile("" : "+r"(address)); // the compiler must not foresee it
    *reinterpret_cast<volatile int*>(address) = 0;
}

/// Reads a mapped file beyond its end: SIGBUS.
KZA_FAULT inline void FaultBus()
{
    std::FILE* file = std::tmpfile();
    void* page = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(file), 0);
    (void)*static_cast<volatile int*>(page);
}

/// Runs an instruction that does not exist: SIGILL.
KZA_FAULT inline void FaultIll()
{
#if defined(__aarch64__)
    asm volatile("udf #0");
#else
    asm volatile("ud2");
#endif
}

/// Overwrites every list of the allocator and what lies near them: SIGABRT.
KZA_FAULT inline void FaultHeap()
{
    constexpr std::size_t damage = 100000;
    auto* block = static_cast<volatile char*>(std::malloc(64));
    for (std::size_t i = 0; i < damage; i++)
        block[i] = '\xa5';
    std::abort();
}

/// Divides by zero, or where that is no fault has the system say so: SIGFPE.
KZA_FAULT inline void FaultFpe()
{
#if defined(__aarch64__)
    raise(SIGFPE);
#else
    asm volatile("xorl %%ecx, %%ecx\n\tmovl $1, %%eax\n\tcltd\n\tidivl %%ecx"
                 :
                 :
                 : "eax", "ecx", "edx", "cc");
#endif
}

/// Runs a breakpoint: SIGTRAP.
KZA_FAULT inline void FaultTrap()
{
#if defined(__aarch64__)
    asm volatile("brk #0");
#else
    asm volatile("int3");
#endif
}

/// Calls itself until the stack overflows: SIGSEGV.
KZA_FAULT inline int FaultStackOverflow(int depth)
{
    int (*volatile again)(int) = FaultStackOverflow;
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    return again(depth + 1) + frame[0];
}

} // namespace TestSupport
