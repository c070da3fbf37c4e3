// SPDX-License-Identifier: Apache-2.0
//
// Memory of the crashed process, read by the helper.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

namespace KzaCore
{

/// Chooses the process that memory is read from: the crashed process, whose
/// threads are stopped, or, where the system forbids that, the helper itself,
/// which has a copy from the moment of its start.
void OpenCrashMemory(pid_t process);

/// Reads memory that may be unmapped.
///
/// \return the bytes read, fewer than asked for where the readable part ends.
std::size_t ReadCrashMemory(std::uint64_t address,
                            void* buffer,
                            std::size_t size);

/// As ReadCrashMemory(), with zeros for each page that cannot be read.
void ReadCrashMemoryOrZeros(std::uint64_t address,
                            void* buffer,
                            std::size_t size);

} // namespace KzaCore
