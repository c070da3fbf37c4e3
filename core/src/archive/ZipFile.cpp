// SPDX-License-Identifier: Apache-2.0

#include "archive/ZipFile.h"

#include "archive/Inflate.h"
#include "archive/ZipFormat.h"
#include "base/Error.h"
#include "base/WholeTransfer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace KzaCore
{

using namespace ZipFormat;

namespace
{

constexpr std::size_t kMaxShown = 200;

constexpr std::size_t kEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;
constexpr std::size_t kMaxComment = 0xFFFF;

// A directory this large describes half a million to a million files. More is
// taken for an attempt to use up the memory of the process.
constexpr std::uint64_t kMaxDirectory = 64ULL << 20;

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;

// True when a local header agrees with the directory's entry. Where the sizes
// follow the data, they may be zero in the header.
//
// \param header  The header with its name and its extra field.
bool AgreesWithLocal(const CZipEntry& entry,
                     const unsigned char* header,
                     std::size_t extraSize)
{
    if (Get32(header) != kLocalSignature ||
        Get16(header + 26) != entry.name.size() ||
        std::memcmp(header + kLocalSize, entry.name.data(),
                    entry.name.size()) != 0)
        return false;

    const std::uint16_t flags = Get16(header + 6);
    std::uint64_t size = Get32(header + 22);
    std::uint64_t compressedSize = Get32(header + 18);
    CZip64Extra zip64(header + kLocalSize + entry.name.size(), extraSize);
    if (!zip64.Take(Get32(header + 22), size) ||
        !zip64.Take(Get32(header + 18), compressedSize))
        return false;

    const bool mayBeZero = (flags & CZipEntry::kSizesFollow) != 0;
    const auto agrees = [mayBeZero](std::uint64_t local, std::uint64_t central)
    { return local == central || (mayBeZero && local == 0); };
    return (flags & CZipEntry::kEncrypted) == 0 &&
           Get16(header + 8) == entry.method &&
           agrees(Get32(header + 14), entry.crc) && agrees(size, entry.size) &&
           agrees(compressedSize, entry.compressedSize);
}

// True for an end record that counts more than one disk. Where a zip64 record
// has the real numbers, those of the end record may be full.
bool IsOfDividedArchive(const unsigned char* end, bool hasZip64)
{
    const auto isNone = [hasZip64](std::uint16_t disk)
    { return disk == 0 || (hasZip64 && disk == kFull16); };
    return !isNone(Get16(end + 4)) || !isNone(Get16(end + 6)) ||
           Get16(end + 8) != Get16(end + 10);
}

// Finds the end record whose comment reaches exactly to the end of the tail.
bool FindEnd(const std::vector<unsigned char>& tail, std::size_t& at)
{
    for (at = tail.size() - kEndSize;; --at)
    {
        if (Get32(&tail[at]) == kEndSignature &&
            at + kEndSize + Get16(&tail[at + 20]) == tail.size())
            return true;
        if (at == 0)
            return false;
    }
}

} // namespace

std::string ShowName(std::string_view name)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string shown = "'";
    for (const char c : name.substr(0, kMaxShown))
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F)
            shown += c;
        else
            shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return shown + (name.size() > kMaxShown ? "...'" : "'");
}

bool CZipFile::Open(const std::string& path, std::string& error)
{
    COpenedFile file;
    if (!file.Open(path))
        return FailBySystem(error, "cannot be opened");
    return Open(std::move(file), nullptr, error);
}

bool CZipFile::Open(COpenedFile file,
                    std::unique_ptr<CFileSeal> seal,
                    std::string& error)
{
    if (!file.IsRegular())
        return Fail(error, "not a regular file");
    m_file = std::move(file);
    m_seal = std::move(seal);
    return FindDirectory(error);
}

bool CZipFile::ReadAt(std::uint64_t offset,
                      void* buffer,
                      std::size_t size,
                      std::string& error) const
{
    if (m_seal)
        return m_seal->ReadAt(m_file.Get(), offset, buffer, size, error);
    if (ReadWholeAt(m_file.Get(), offset, buffer, size) == size)
        return true;
    return errno == 0 ? Fail(error, "the file ends too early")
                      : FailBySystem(error, "cannot be read");
}

// Reads the end of the file: `most` bytes, or the whole file when it is
// shorter.
bool CZipFile::ReadTail(std::size_t most,
                        std::vector<unsigned char>& tail,
                        std::string& error) const
{
    const auto fileSize = m_file.Size();
    tail.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(fileSize, most)));
    return ReadAt(fileSize - tail.size(), tail.data(), tail.size(), error);
}

// Reads the end of the file, down to the end record, and finds the record.
//
// \param tail  Out: the last bytes of the file.
// \param at    Out: offset of the record in `tail`.
bool CZipFile::FindEndRecord(std::vector<unsigned char>& tail,
                             std::size_t& at,
                             std::string& error) const
{
    if (m_file.Size() < kEndSize)
        return Fail(error, m_file.Size() == 0 ? "the file is empty"
                                              : "too short for a zip archive");
    // Nearly every archive has no comment; its end record is the end of the
    // file.
    for (const std::size_t most : {kEndSize, kEndSize + kMaxComment})
    {
        if (!ReadTail(most, tail, error))
            return false;
        if (FindEnd(tail, at))
            return true;
    }
    return Fail(error, "no zip directory at its end: truncated or "
                       "not a zip archive");
}

// Finds the end record and through it the directory. The record's comment must
// reach exactly to the end of the file, and the directory exactly to the end
// record: otherwise the file was truncated, has bytes appended, or is forged.
bool CZipFile::FindDirectory(std::string& error)
{
    std::vector<unsigned char> tail;
    std::size_t at = 0;
    if (!FindEndRecord(tail, at, error))
        return false;
    CDirectory& directory = m_directory;
    const unsigned char* const end = &tail[at];
    directory.count = Get16(end + 10);
    directory.size = Get32(end + 12);
    directory.offset = Get32(end + 16);

    const std::uint64_t endOffset = m_file.Size() - tail.size() + at;
    std::uint64_t directoryEnd = endOffset;
    if (!ReadZip64End(endOffset, directory, directoryEnd, error))
        return false;
    if (IsOfDividedArchive(end, directoryEnd != endOffset))
        return Fail(error, "one part of a divided archive");
    if (directory.offset > directoryEnd ||
        directory.size != directoryEnd - directory.offset)
        return Fail(error,
                    "the zip directory is not where its end record says");
    if (directory.size > kMaxDirectory)
        return Fail(error, "the zip directory is too large");
    if (directory.count > directory.size / kCentralSize)
        return Fail(error, "the zip directory is too short for its entries");
    return true;
}

// Looks for the zip64 end record that may stand before the end record at
// `end`. Numbers that are not full in the end record must agree with it.
bool CZipFile::ReadZip64End(std::uint64_t end,
                            CDirectory& directory,
                            std::uint64_t& directoryEnd,
                            std::string& error) const
{
    if (end < kZip64LocatorSize)
        return true;
    unsigned char locator[kZip64LocatorSize];
    if (!ReadAt(end - sizeof locator, locator, sizeof locator, error))
        return false;
    if (Get32(locator) != kZip64LocatorSignature)
        return true;

    const std::uint64_t at = Get64(locator + 8);
    unsigned char record[kZip64EndSize];
    if (at > end - sizeof locator || end - sizeof locator - at < sizeof record)
        return Fail(error, "the zip64 end record is not where it should be");
    if (!ReadAt(at, record, sizeof record, error))
        return false;
    const std::uint64_t count = Get64(record + 32);
    const std::uint64_t size = Get64(record + 40);
    const std::uint64_t offset = Get64(record + 48);
    const bool agrees =
        Get32(record) == kZip64EndSignature && Get64(record + 24) == count &&
        Get32(record + 16) == 0 && Get32(record + 20) == 0 && // the only disk
        Get64(record + 4) == end - sizeof locator - at - 12 &&
        (directory.count == kFull16 || directory.count == count) &&
        (directory.size == kFull32 || directory.size == size) &&
        (directory.offset == kFull32 || directory.offset == offset);
    if (!agrees)
        return Fail(error,
                    "the zip64 end record disagrees with the end record");
    directory = {offset, size, count};
    directoryEnd = at;
    return true;
}

std::size_t CZipFile::MaxNames() const
{
    return static_cast<std::size_t>(m_directory.size -
                                    m_directory.count * kCentralSize);
}

bool CZipFile::Locate(const CZipEntry& entry,
                      std::uint64_t& data,
                      std::string& error) const
{
    if ((entry.flags & CZipEntry::kEncrypted) != 0)
        return Fail(error, "encrypted");
    if (entry.method != CZipEntry::kStored &&
        entry.method != CZipEntry::kDeflated)
        return Fail(error, "unknown compression method " +
                               std::to_string(entry.method));
    if (entry.method == CZipEntry::kStored &&
        entry.compressedSize != entry.size)
        return Fail(error, "stored in another size than its own");
    if (entry.size / kMaxDeflateRatio > entry.compressedSize)
        return Fail(error, "larger than its compressed bytes can give");

    // One read covers nearly every header.
    unsigned char near[512];
    const std::uint64_t room = m_directory.offset - entry.offset;
    const auto got =
        static_cast<std::size_t>(std::min<std::uint64_t>(room, sizeof near));
    if (!ReadAt(entry.offset, near, got, error))
        return false;
    const std::size_t extraSize = Get16(near + 28);
    const std::size_t size = kLocalSize + entry.name.size() + extraSize;
    std::vector<unsigned char> far;
    if (size > got && size <= room)
    {
        far.resize(size);
        if (!ReadAt(entry.offset, far.data(), size, error))
            return false;
    }
    data = entry.offset + size;
    if (size > room || entry.compressedSize > room - size ||
        !AgreesWithLocal(entry, far.empty() ? near : far.data(), extraSize))
        return Fail(error, "the zip directory disagrees with its header");
    return true;
}

} // namespace KzaCore
