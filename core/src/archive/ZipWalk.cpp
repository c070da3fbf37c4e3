// SPDX-License-Identifier: Apache-2.0

#include "archive/ZipWalk.h"

#include "archive/ZipFormat.h"
#include "base/Error.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace KzaCore
{

using namespace ZipFormat;

namespace
{

constexpr std::uint32_t kCentralSignature = 0x02014b50;

// The directory is read in pieces of this size; one record fits in any case.
constexpr std::size_t kPiece = 256 * 1024;
constexpr std::size_t kMaxRecord = kCentralSize + 3 * 0xFFFF;

} // namespace

CZipWalk::CZipWalk(const CZipFile& file)
    : m_file(file),
      m_piece(std::min<std::uint64_t>(file.m_directory.size, kPiece)),
      m_next(file.m_directory.offset),
      m_end(file.m_directory.offset + file.m_directory.size),
      m_left(file.m_directory.count)
{
}

// Reads more of the directory unless the next record is certainly in memory as
// a whole.
bool CZipWalk::Fill(std::string& error)
{
    if (m_filled - m_at >= kMaxRecord || m_next == m_end)
        return true;
    std::memmove(m_piece.data(), m_piece.data() + m_at, m_filled - m_at);
    m_filled -= m_at;
    m_at = 0;
    const auto more = static_cast<std::size_t>(
        std::min<std::uint64_t>(m_piece.size() - m_filled, m_end - m_next));
    if (!m_file.ReadAt(m_next, m_piece.data() + m_filled, more, error))
        return false;
    m_filled += more;
    m_next += more;
    return true;
}

const CZipEntry* CZipWalk::Next(std::string& error)
{
    if (m_left == 0)
    {
        m_isWhole = m_next == m_end && m_at == m_filled;
        if (!m_isWhole)
            error = "the zip directory holds more than its entries";
        return nullptr;
    }
    if (!Fill(error))
        return nullptr;
    const unsigned char* const record = m_piece.data() + m_at;
    const std::size_t left = m_filled - m_at;
    const bool isRecord =
        left >= kCentralSize && Get32(record) == kCentralSignature;
    const std::size_t length = isRecord
                                   ? kCentralSize + Get16(record + 28) +
                                         Get16(record + 30) + Get16(record + 32)
                                   : 0;
    // The rest of the directory must have room for the records to come. The
    // caller relies on it: MaxNames() follows from the same sum.
    const std::uint64_t rest = (m_left - 1) * kCentralSize;
    if (!isRecord || left < length || left - length + (m_end - m_next) < rest)
    {
        error = "the zip directory is damaged";
        return nullptr;
    }
    if (!Take(record, error))
        return nullptr;
    m_at += length;
    --m_left;
    return &m_entry;
}

// Fills m_entry from one record, which is in memory with its name and its extra
// field.
bool CZipWalk::Take(const unsigned char* record, std::string& error)
{
    const std::size_t nameSize = Get16(record + 28);
    const auto* const name =
        reinterpret_cast<const char*>(record + kCentralSize);
    const std::uint64_t limit = m_file.m_directory.offset;

    CZipEntry& entry = m_entry;
    entry.name = std::string_view(name, nameSize);
    entry.system = record[5];
    entry.flags = Get16(record + 8);
    entry.method = Get16(record + 10);
    entry.dosDateTime = Get32(record + 12);
    entry.crc = Get32(record + 16);
    entry.compressedSize = Get32(record + 20);
    entry.size = Get32(record + 24);
    entry.attributes = Get32(record + 38);
    entry.offset = Get32(record + 42);

    CZip64Extra extra(record + kCentralSize + nameSize, Get16(record + 30));
    const bool whole = extra.Take(Get32(record + 24), entry.size) &&
                       extra.Take(Get32(record + 20), entry.compressedSize) &&
                       extra.Take(Get32(record + 42), entry.offset) &&
                       extra.IsOnlyDisk(Get16(record + 34));
    // The local header repeats the name, so it has at least this size.
    const std::uint64_t headers = kLocalSize + nameSize;
    const bool fits = whole && entry.offset <= limit &&
                      headers <= limit - entry.offset &&
                      entry.compressedSize <= limit - entry.offset - headers;
    return fits || Fail(error, "entry " + ShowName(entry.name) +
                                   ": it lies outside of the archive");
}

} // namespace KzaCore
