// SPDX-License-Identifier: Apache-2.0
//
// Writing minidumps with system calls alone.

#include "crash/MinidumpFile.h"

#include "base/WholeTransfer.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr std::uint64_t kAlignment = 8;
constexpr std::uint32_t kReplacement = 0xfffd;

std::size_t SequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xc2 && lead < 0xe0)
        return 2;
    if (lead >= 0xe0 && lead < 0xf0)
        return 3;
    return lead >= 0xf0 && lead < 0xf5 ? 4 : 0;
}

// Takes the next character off the text; the replacement character for a byte
// that is not UTF-8.
std::uint32_t NextCharacter(const char*& text)
{
    const auto lead = static_cast<unsigned char>(*text++);
    const std::size_t length = SequenceLength(lead);
    if (length <= 1)
        return length == 1 ? lead : kReplacement;
    std::uint32_t character = lead & (0x7fU >> length);
    for (std::size_t i = 0; i + 1 < length; i++)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xc0U) != 0x80U)
            return kReplacement;
        character = character << 6U | (byte & 0x3fU);
    }
    text += length - 1;
    return character;
}

bool IsZero(const char* data, std::size_t size)
{
    return size == 0 ||
           (data[0] == 0 && std::memcmp(data, data + 1, size - 1) == 0);
}

} // namespace

CMinidumpFile::CMinidumpFile(int file) : m_file(file)
{
}

Minidump::CLocation CMinidumpFile::Append(const void* data, std::size_t size)
{
    const Minidump::CLocation place = Reserve(size);
    Fill(place, data, size);
    return place;
}

Minidump::CLocation CMinidumpFile::Reserve(std::size_t size)
{
    m_position = (m_position + kAlignment - 1) & ~(kAlignment - 1);
    const std::uint64_t start = m_position;
    if (m_error == 0 && start + size > UINT32_MAX)
        m_error = EFBIG;
    m_position += size;
    return {static_cast<std::uint32_t>(size),
            static_cast<std::uint32_t>(start)};
}

void CMinidumpFile::Fill(Minidump::CLocation place,
                         const void* data,
                         std::size_t size)
{
    WriteAt(place.rva, data, size);
}

std::uint32_t CMinidumpFile::AppendString(const char* text)
{
    struct
    {
        std::uint32_t bytes;
        std::uint16_t units[kMaxString + 2];
    } string = {};
    std::size_t count = 0;
    while (*text != '\0' && count < kMaxString)
    {
        const std::uint32_t character = NextCharacter(text);
        if (character < 0x10000)
        {
            string.units[count++] = static_cast<std::uint16_t>(character);
            continue;
        }
        const std::uint32_t rest = character - 0x10000;
        string.units[count++] =
            static_cast<std::uint16_t>(0xd800U + (rest >> 10U));
        string.units[count++] =
            static_cast<std::uint16_t>(0xdc00U + (rest & 0x3ffU));
    }
    string.bytes = static_cast<std::uint32_t>(count * sizeof(std::uint16_t));
    // The length does not count the final zero, but the file must contain it.
    return Append(&string,
                  sizeof(string.bytes) + string.bytes + sizeof(std::uint16_t))
        .rva;
}

void CMinidumpFile::AddStream(Minidump::EStream type,
                              Minidump::CLocation location)
{
    if (m_streamCount < kMaxStreams)
        m_streams[m_streamCount++] = {type, location};
}

void CMinidumpFile::AppendRaw(const void* data, std::size_t size)
{
    if (!IsZero(static_cast<const char*>(data), size))
        WriteAt(m_position, data, size);
    m_position += size;
}

void CMinidumpFile::WriteAt(std::uint64_t offset,
                            const void* data,
                            std::size_t size)
{
    if (m_error == 0 && WriteWholeAt(m_file, offset, data, size) != size)
        m_error = errno;
}

int CMinidumpFile::Finish(std::uint32_t time, std::uint64_t flags)
{
    // AppendRaw() does not write zeros, so the file may be too short.
    if (m_error == 0 && ftruncate(m_file, static_cast<off_t>(m_position)) != 0)
        m_error = errno;
    const Minidump::CHeader header = {Minidump::kSignature,
                                      Minidump::kVersion,
                                      static_cast<std::uint32_t>(m_streamCount),
                                      sizeof(Minidump::CHeader),
                                      0,
                                      time,
                                      flags};
    WriteAt(0, &header, sizeof(header));
    WriteAt(sizeof(header), m_streams,
            m_streamCount * sizeof(Minidump::CDirectory));
    return m_error;
}

} // namespace KzaCore
