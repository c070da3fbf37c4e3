// SPDX-License-Identifier: Apache-2.0
//
// The registers of a thread and the processor that they belong to. Each
// processor has a folder of its own with the code.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/MinidumpFormat.h"

#include <cstddef>
#include <cstdint>

#include <sys/types.h>
#include <sys/ucontext.h>

namespace KzaCore
{

/// Room for the largest record of registers that the format has.
inline constexpr std::size_t kMaxRegistersRecord = 1232;

struct CCrashRegisters
{
    std::uint64_t stackPointer;
    std::uint64_t instruction; // its address

    // The registers as the format's record for this processor.
    alignas(16) unsigned char record[kMaxRegistersRecord];
    std::size_t recordSize;
};

/// Reads the registers of a stopped thread.
///
/// \return false when the system does not give them.
[[nodiscard]] bool ReadRegisters(pid_t thread, CCrashRegisters& registers);

/// Converts the registers at the fault, which the system passed to the handler.
void TakeRegisters(const ucontext_t& from, CCrashRegisters& registers);

/// Sets the fields that describe the processor.
void DescribeProcessor(Minidump::CSystemInfo& system);

} // namespace KzaCore
