// SPDX-License-Identifier: Apache-2.0
//
// Writes a minidump: a header, a directory of streams, and then blocks one
// after the other, each of which has a location.
//
// Threads: one at a time. Async-signal-safe: system calls only, no allocation,
// so that it works in the copy of a process whose heap and locks are broken.
// After the first error, all calls do nothing and Finish() reports the error.

#pragma once

#include "crash/MinidumpFormat.h"

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

class CMinidumpFile
{
public:
    /// \param file  An empty file, open for writing; not owned.
    explicit CMinidumpFile(int file);

    /// Writes a block, aligned to eight bytes.
    Minidump::CLocation Append(const void* data, std::size_t size);

    /// Writes text as the format's string: a length and UTF-16. Bytes that
    /// are not UTF-8 become U+FFFD, length is cut at kMaxString characters.
    ///
    /// \return its offset.
    std::uint32_t AppendString(const char* text);

    /// Lists a block in the directory as a stream. Streams beyond kMaxStreams
    /// are dropped.
    void AddStream(Minidump::EStream type, Minidump::CLocation location);

    /// Reserves `size` bytes for a block that is filled in later by Fill().
    Minidump::CLocation Reserve(std::size_t size);
    void Fill(Minidump::CLocation place, const void* data, std::size_t size);

    /// Writes bytes that follow the last ones directly, beyond the reach of
    /// a 32-bit location too. Zeros are left as a hole in the file.
    void AppendRaw(const void* data, std::size_t size);

    /// The offset where the next AppendRaw() writes.
    [[nodiscard]] std::uint64_t Position() const { return m_position; }

    /// Writes directory and header.
    ///
    /// \param time   Seconds since the epoch.
    /// \param flags  The header's kind of dump.
    ///
    /// \return 0, or the errno of the first write that failed.
    int Finish(std::uint32_t time, std::uint64_t flags);

    /// 0, or the errno of the first write that failed.
    [[nodiscard]] int Error() const { return m_error; }

    static constexpr std::size_t kMaxStreams = 16;
    static constexpr std::size_t kMaxString = 1024;

private:
    void WriteAt(std::uint64_t offset, const void* data, std::size_t size);

    int m_file;
    int m_error = 0;
    std::uint64_t m_position =
        sizeof(Minidump::CHeader) + kMaxStreams * sizeof(Minidump::CDirectory);
    std::size_t m_streamCount = 0;
    Minidump::CDirectory m_streams[kMaxStreams] = {};
};

} // namespace KzaCore
