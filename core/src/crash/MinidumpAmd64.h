// SPDX-License-Identifier: Apache-2.0
//
// The minidump format's record of the registers of x86-64.
//
// Threads: none of it has state.

#pragma once

#include <cstdint>

namespace KzaCore::Minidump
{

inline constexpr std::uint16_t kArchitectureAmd64 = 9;
inline constexpr std::uint32_t kContextAmd64 = 0x0010000f;

#pragma pack(push, 4)

struct CContextAmd64
{
    std::uint64_t home[6];
    std::uint32_t flags; // the parts that are filled: kContextAmd64
    std::uint32_t mxcsr;
    std::uint16_t cs, ds, es, fs, gs, ss;
    std::uint32_t eflags;
    std::uint64_t debug[6];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;
    std::uint8_t floatSave[512]; // as the fxsave instruction lays it out
    std::uint8_t vector[416];
    std::uint64_t control[6];
};

#pragma pack(pop)

static_assert(sizeof(CContextAmd64) == 1232);

} // namespace KzaCore::Minidump
