// SPDX-License-Identifier: Apache-2.0

#include "archive/Inflate.h"

#include <libdeflate.h>

#include <algorithm>

namespace KzaCore
{

CInflater::CInflater() : m_decompressor(libdeflate_alloc_decompressor())
{
}

CInflater::~CInflater()
{
    libdeflate_free_decompressor(m_decompressor);
}

CInflater::EResult CInflater::Try(const void* in,
                                  std::size_t inSize,
                                  void* out,
                                  std::size_t outSize)
{
    if (m_decompressor == nullptr)
        return EResult::Failed;
    std::size_t used = 0;
    std::size_t made = 0;
    const libdeflate_result result = libdeflate_deflate_decompress_ex(
        m_decompressor, in, inSize, out, outSize, &used, &made);
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE)
        return EResult::NoRoom;
    return result == LIBDEFLATE_SUCCESS && used == inSize && made == outSize
               ? EResult::Done
               : EResult::Failed;
}

bool CInflater::Inflate(const void* in,
                        std::size_t inSize,
                        void* out,
                        std::size_t outSize)
{
    return Try(in, inSize, out, outSize) == EResult::Done;
}

bool CInflater::InflateGrowing(const void* in,
                               std::size_t inSize,
                               std::string& out,
                               std::size_t outSize)
{
    // Each attempt unpacks the stream from its beginning. As each has four
    // times the room of the one before, all of them together cost a third more
    // than the last one alone.
    constexpr std::size_t kFirst = 4 << 20;
    constexpr std::size_t kGrowth = 4;
    std::size_t room = std::min(kFirst, outSize);
    for (;;)
    {
        out.clear(); // else resizing would copy it
        out.resize(room);
        const EResult result = Try(in, inSize, out.data(), room);
        if (result != EResult::NoRoom || room == outSize)
            return result == EResult::Done && room == outSize;
        room = std::min(kGrowth * room, outSize);
    }
}

std::uint32_t Crc32(std::uint32_t crc, const void* bytes, std::size_t size)
{
    return libdeflate_crc32(crc, bytes, size);
}

} // namespace KzaCore
