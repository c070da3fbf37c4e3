// SPDX-License-Identifier: Apache-2.0
//
// Reading and writing that goes on until all bytes are transferred, where the
// system calls may stop at a part of them or at a signal.
//
// Threads: any. May be called in a signal handler and after a fork.

#pragma once

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

/// Fills a buffer from a file's current position, or from a given one.
///
/// \return how many bytes were read: `size`, or fewer. With fewer, errno is 0
///         when the file ended there, else the reason.
[[nodiscard]] std::size_t ReadWhole(int file, void* buffer, std::size_t size);
[[nodiscard]] std::size_t ReadWholeAt(int file,
                                      std::uint64_t offset,
                                      void* buffer,
                                      std::size_t size);

/// Writes all bytes to a file's current position, or to a given one; with one
/// system call where the system takes them at once.
///
/// \return how many bytes were written: `size`, or fewer with the reason in
///         errno.
[[nodiscard]] std::size_t WriteWhole(int file,
                                     const void* bytes,
                                     std::size_t size);
[[nodiscard]] std::size_t WriteWholeAt(int file,
                                       std::uint64_t offset,
                                       const void* bytes,
                                       std::size_t size);

} // namespace KzaCore
