// SPDX-License-Identifier: Apache-2.0
//
// Ways for a process to die of a fault.
//
// Threads: any. The sanitizers look away from what is done here on purpose.

#pragma once

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
    asm volatile("movl $0, (%0)" : : "r"(kFaultAddress) : "memory");
}

/// Reads a mapped file beyond its end: SIGBUS.
KZA_FAULT inline void FaultBus()
{
    std::FILE* file = std::tmpfile();
    void* page = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(file), 0);
    asm volatile("movl (%0), %%eax" : : "r"(page) : "eax", "memory");
}

/// Runs an instruction that does not exist: SIGILL.
KZA_FAULT inline void FaultIll()
{
    asm volatile("ud2");
}

/// Divides by zero: SIGFPE.
KZA_FAULT inline void FaultFpe()
{
    asm volatile("xorl %%ecx, %%ecx\n\tmovl $1, %%eax\n\tcltd\n\tidivl %%ecx"
                 :
                 :
                 : "eax", "ecx", "edx", "cc");
}

/// Runs a breakpoint: SIGTRAP.
KZA_FAULT inline void FaultTrap()
{
    asm volatile("int3");
}

/// Never ends until the stack does: SIGSEGV.
KZA_FAULT inline int FaultStackOverflow(int depth)
{
    int (*volatile again)(int) = FaultStackOverflow;
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    return again(depth + 1) + frame[0];
}

} // namespace TestSupport
