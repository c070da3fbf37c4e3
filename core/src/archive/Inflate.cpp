// SPDX-License-Identifier: Apache-2.0

#include "archive/Inflate.h"

#include <libdeflate.h>

namespace KzaCore
{

CInflater::CInflater() : m_decompressor(libdeflate_alloc_decompressor())
{
}

CInflater::~CInflater()
{
    libdeflate_free_decompressor(m_decompressor);
}

bool CInflater::Inflate(const void* in,
                        std::size_t inSize,
                        void* out,
                        std::size_t outSize)
{
    if (m_decompressor == nullptr)
        return false;
    std::size_t used = 0;
    std::size_t made = 0;
    const libdeflate_result result = libdeflate_deflate_decompress_ex(
        m_decompressor, in, inSize, out, outSize, &used, &made);
    return result == LIBDEFLATE_SUCCESS && used == inSize && made == outSize;
}

std::uint32_t Crc32(std::uint32_t crc, const void* bytes, std::size_t size)
{
    return libdeflate_crc32(crc, bytes, size);
}

} // namespace KzaCore
