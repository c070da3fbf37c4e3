// SPDX-License-Identifier: Apache-2.0
//
// From the registers of aarch64 as Linux hands them out to the record that a
// dump has. Nothing here needs that processor, so tests of it run on any.
//
// Threads: any. Async-signal-safe.

#pragma once

#include "crash/MinidumpArm64.h"

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// As the debugging interface lays them out, and a signal's context too.
struct CArm64General
{
    std::uint64_t x[31];
    std::uint64_t sp;
    std::uint64_t pc;
    std::uint64_t pstate;
};

/// As the debugging interface lays them out.
struct CArm64Vector
{
    alignas(16) std::uint8_t v[32][16];
    std::uint32_t fpsr;
    std::uint32_t fpcr;
    std::uint32_t unused[2];
};

/// Looks for the vector registers in a signal's context, where a list of
/// records follows the general registers.
///
/// \param list    The first record.
/// \param size    Bytes that the list may have.
/// \param vector  Out: the registers; unchanged without them.
///
/// \return false when the list has none.
[[nodiscard]] bool FindVector(const unsigned char* list,
                              std::size_t size,
                              CArm64Vector& vector);

/// \param vector  Null when they are not known.
[[nodiscard]] Minidump::CContextArm64 MakeContext(const CArm64General& general,
                                                  const CArm64Vector* vector);

} // namespace KzaCore
