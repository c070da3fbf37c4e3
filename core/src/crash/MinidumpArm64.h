// SPDX-License-Identifier: Apache-2.0
//
// The minidump format's record of the registers of aarch64.
//
// The format has two such records. This is the older one, which comes with an
// architecture number of its own: breakpad writes it, and lldb reads no other.
//
// Threads: none of it has state.

#pragma once

#include <cstdint>

namespace KzaCore::Minidump
{

inline constexpr std::uint16_t kArchitectureArm64 = 0x8003;

// Flags for the groups of registers that a record has.
inline constexpr std::uint64_t kContextArm64General = 0x80000002;
inline constexpr std::uint64_t kContextArm64Vector = 0x80000004;

#pragma pack(push, 4)

struct CContextArm64
{
    std::uint64_t flags;
    std::uint64_t x[31]; // 29 is the frame pointer, 30 the return address
    std::uint64_t sp;
    std::uint64_t pc;
    std::uint32_t cpsr;
    std::uint32_t fpsr;
    std::uint32_t fpcr;
    std::uint8_t v[32][16];
};

#pragma pack(pop)

static_assert(sizeof(CContextArm64) == 796);

} // namespace KzaCore::Minidump
