// SPDX-License-Identifier: Apache-2.0
//
// Converts the registers of aarch64 from Linux's layouts to the record in a
// dump. The code runs on any processor, and so do its tests.
//
// Threads: any. Async-signal-safe.

#pragma once

#include "crash/MinidumpArm64.h"

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// The general registers in the layout of the debugging interface and of a
/// signal's context.
struct CArm64General
{
    std::uint64_t x[31];
    std::uint64_t sp;
    std::uint64_t pc;
    std::uint64_t pstate;
};

/// The vector registers in the layout of the debugging interface.
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

/// Makes the record of a dump.
///
/// \param vector  Null when the vector registers are not known.
[[nodiscard]] Minidump::CContextArm64 MakeContext(const CArm64General& general,
                                                  const CArm64Vector* vector);

} // namespace KzaCore
