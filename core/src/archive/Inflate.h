// SPDX-License-Identifier: Apache-2.0
//
// Deflate and CRC-32 over whole buffers.
//
// Threads: any; one CInflater belongs to one thread at a time.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct libdeflate_decompressor;

namespace KzaCore
{

/// One compressed byte of deflate cannot unpack to more bytes than this.
inline constexpr std::uint64_t kMaxDeflateRatio = 1032;

class CInflater
{
public:
    CInflater();
    ~CInflater();

    CInflater(const CInflater&) = delete;
    CInflater& operator=(const CInflater&) = delete;

    /// Unpacks a raw deflate stream that must fill both buffers exactly.
    [[nodiscard]] bool Inflate(const void* in,
                               std::size_t inSize,
                               void* out,
                               std::size_t outSize);

    /// As Inflate(), into a buffer that grows with the output: a stream that
    /// holds less than `outSize` bytes takes no more memory than its output.
    ///
    /// \param out      Replaced by `outSize` bytes; undefined after a failure.
    /// \param outSize  The size that the archive claims for the output; need
    ///                 not be true.
    [[nodiscard]] bool InflateGrowing(const void* in,
                                      std::size_t inSize,
                                      std::string& out,
                                      std::size_t outSize);

private:
    enum class EResult
    {
        Done,
        NoRoom, // the stream holds more than fits
        Failed
    };

    EResult Try(const void* in,
                std::size_t inSize,
                void* out,
                std::size_t outSize);

    libdeflate_decompressor* m_decompressor; // null when memory is short
};

/// The CRC-32 of more bytes, going on from an earlier value; 0 to begin.
[[nodiscard]] std::uint32_t Crc32(std::uint32_t crc,
                                  const void* bytes,
                                  std::size_t size);

} // namespace KzaCore
