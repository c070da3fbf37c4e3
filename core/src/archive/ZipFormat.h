// SPDX-License-Identifier: Apache-2.0
//
// The parts of the zip format that the archive's file and the walk over its
// entries both read: numbers, record sizes, and the zip64 extra field.
//
// Threads: any.

#pragma once

#include <cstddef>
#include <cstdint>

namespace KzaCore::ZipFormat
{

/// Sizes of a record of the directory and of a local header, without the names
/// and fields that follow.
inline constexpr std::size_t kCentralSize = 46;
inline constexpr std::size_t kLocalSize = 30;

/// The values by which a record refers to a zip64 one.
inline constexpr std::uint32_t kFull32 = 0xFFFFFFFF;
inline constexpr std::uint16_t kFull16 = 0xFFFF;

/// Little-endian numbers.
inline std::uint16_t Get16(const unsigned char* p)
{
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

inline std::uint32_t Get32(const unsigned char* p)
{
    return Get16(p) | static_cast<std::uint32_t>(Get16(p + 2)) << 16;
}

inline std::uint64_t Get64(const unsigned char* p)
{
    return Get32(p) | static_cast<std::uint64_t>(Get32(p + 4)) << 32;
}

/// The 64-bit values in a zip64 extra field. The field holds, in a fixed order,
/// only the values whose 32-bit form in the record is full (all bits set).
class CZip64Extra
{
public:
    /// \param extra  All extra fields of the record.
    CZip64Extra(const unsigned char* extra, std::size_t size)
    {
        while (size >= 4)
        {
            const std::size_t length = Get16(extra + 2);
            if (length > size - 4)
                return;
            if (Get16(extra) == kZip64)
            {
                m_next = extra + 4;
                m_left = length;
                return;
            }
            extra += 4 + length;
            size -= 4 + length;
        }
    }

    /// Replaces `value` when its short form is full; false when the field does
    /// not hold the long form.
    bool Take(std::uint32_t shortForm, std::uint64_t& value)
    {
        if (shortForm != kFull32)
            return true;
        if (m_left < 8)
            return false;
        value = Get64(m_next);
        m_next += 8;
        m_left -= 8;
        return true;
    }

    /// True when the next value, or its short form when that is not full, is
    /// the number of the only disk.
    [[nodiscard]] bool IsOnlyDisk(std::uint16_t shortForm) const
    {
        if (shortForm != kFull16)
            return shortForm == 0;
        return m_left >= 4 && Get32(m_next) == 0;
    }

private:
    static constexpr std::uint16_t kZip64 = 0x0001;

    const unsigned char* m_next = nullptr;
    std::size_t m_left = 0;
};

} // namespace KzaCore::ZipFormat
