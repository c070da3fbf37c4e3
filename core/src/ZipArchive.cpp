// SPDX-License-Identifier: Apache-2.0

#include "ZipArchive.h"

#include "Inflate.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

namespace KzaCore
{

namespace
{

constexpr std::size_t kEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kMaxComment = 0xFFFF;

// A directory this large describes about half a million files. More is taken
// for an attempt to use up the memory of the process.
constexpr std::uint64_t kMaxDirectory = 64ULL << 20;

// Whole contents are only read of entries that a program could want in memory.
constexpr std::uint64_t kMaxWhole = 1ULL << 30;

// The directory is read in pieces of this size; one record fits in any case.
constexpr std::size_t kPiece = 256 * 1024;
constexpr std::size_t kMaxRecord = kCentralSize + 3 * 0xFFFF;

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;

constexpr std::uint32_t kFull32 = 0xFFFFFFFF;
constexpr std::uint16_t kFull16 = 0xFFFF;
constexpr std::uint16_t kZip64Extra = 0x0001;

std::uint16_t Get16(const unsigned char* p)
{
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

std::uint32_t Get32(const unsigned char* p)
{
    return Get16(p) | static_cast<std::uint32_t>(Get16(p + 2)) << 16;
}

std::uint64_t Get64(const unsigned char* p)
{
    return Get32(p) | static_cast<std::uint64_t>(Get32(p + 4)) << 32;
}

std::string SystemText(const char* what)
{
    return std::string(what) + ": " + std::generic_category().message(errno);
}

bool Fail(std::string& error, const char* reason)
{
    error = reason;
    return false;
}

// Names come from outside; the seed keeps an archive from choosing names that
// all fall into one slot.
std::uint64_t NewSeed(const void* address)
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(now.count()) * 0x9E3779B97F4A7C15ULL ^
           reinterpret_cast<std::uintptr_t>(address);
}

std::uint64_t Mix(std::uint64_t h)
{
    h ^= h >> 32;
    h *= 0xD6E8FEB86659FD93ULL;
    h ^= h >> 29;
    return h;
}

std::uint64_t Hash(std::string_view name, std::uint64_t seed)
{
    std::uint64_t h = seed ^ name.size();
    while (name.size() >= sizeof h)
    {
        std::uint64_t word = 0;
        std::memcpy(&word, name.data(), sizeof word);
        h = Mix((h ^ word) + seed);
        name.remove_prefix(sizeof word);
    }
    std::uint64_t rest = 0;
    if (!name.empty())
        std::memcpy(&rest, name.data(), name.size());
    return Mix(Mix((h ^ rest) + seed));
}

// The values of a zip64 extra field, in the order the format gives them; only
// those stand there whose short form is full.
class CZip64Extra
{
public:
    CZip64Extra(const unsigned char* extra, std::size_t size)
    {
        while (size >= 4)
        {
            const std::size_t length = Get16(extra + 2);
            if (length > size - 4)
                return;
            if (Get16(extra) == kZip64Extra)
            {
                m_next = extra + 4;
                m_left = length;
                return;
            }
            extra += 4 + length;
            size -= 4 + length;
        }
    }

    // Replaces a full short form; false when the field does not hold it.
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

private:
    const unsigned char* m_next = nullptr;
    std::size_t m_left = 0;
};

// True when a local header, read with what belongs to it, says what the
// directory says. Where the sizes follow the data, zeros may stand for them.
bool AgreesWithLocal(const SZipEntry& entry,
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

    const bool mayBeZero = (flags & SZipEntry::kSizesFollow) != 0;
    const auto agrees = [mayBeZero](std::uint64_t local, std::uint64_t central)
    { return local == central || (mayBeZero && local == 0); };
    return (flags & SZipEntry::kEncrypted) == 0 &&
           Get16(header + 8) == entry.method &&
           agrees(Get32(header + 14), entry.crc) && agrees(size, entry.size) &&
           agrees(compressedSize, entry.compressedSize);
}

} // namespace

bool CZipArchive::Open(const std::string& path, std::string& error)
{
    SDirectory directory;
    if (!OpenFile(path, error) || !FindDirectory(directory, error) ||
        !ReadDirectory(directory, error))
    {
        m_entries.clear();
        return false;
    }
    Index();
    return true;
}

bool CZipArchive::OpenFile(const std::string& path, std::string& error)
{
    m_path = path;
    m_seed = NewSeed(this);

    // A pipe of that name must not hold the process up.
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    m_file = CDescriptor(open(path.c_str(), kFlags));
    struct stat status = {};
    if (!m_file.IsOpen() || fstat(m_file.Get(), &status) != 0)
    {
        error = SystemText("cannot be opened");
        return false;
    }
    if (!S_ISREG(status.st_mode))
        return Fail(error, "not a regular file");
    m_stamp = {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    return true;
}

bool CZipArchive::ReadAt(std::uint64_t offset,
                         void* buffer,
                         std::size_t size,
                         std::string& error) const
{
    char* next = static_cast<char*>(buffer);
    while (size > 0)
    {
        const ssize_t got =
            pread(m_file.Get(), next, size, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
        {
            error = SystemText("cannot be read");
            return false;
        }
        if (got == 0)
            return Fail(error, "the file ends too early");
        next += got;
        offset += static_cast<std::uint64_t>(got);
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// Finds the end record, whose comment must reach exactly to the end of the
// file, and through it the directory, which must reach exactly to the end
// record. Whatever else stands there was cut off, glued on or made up.
bool CZipArchive::FindDirectory(SDirectory& directory, std::string& error) const
{
    const auto fileSize = static_cast<std::uint64_t>(m_stamp.size);
    if (fileSize < kEndSize)
    {
        return Fail(error, fileSize == 0 ? "the file is empty"
                                         : "too short for a zip archive");
    }
    const auto tailSize = static_cast<std::size_t>(
        std::min<std::uint64_t>(fileSize, kEndSize + kMaxComment));
    std::vector<unsigned char> tail(tailSize);
    if (!ReadAt(fileSize - tailSize, tail.data(), tailSize, error))
        return false;

    std::size_t at = tailSize - kEndSize;
    const auto isEnd = [&]
    {
        return Get32(&tail[at]) == kEndSignature &&
               at + kEndSize + Get16(&tail[at + 20]) == tailSize;
    };
    while (!isEnd())
    {
        if (at == 0)
        {
            return Fail(error, "no zip directory at its end: truncated or "
                               "not a zip archive");
        }
        --at;
    }

    const unsigned char* const end = &tail[at];
    if (Get16(end + 4) != 0 || Get16(end + 6) != 0 ||
        Get16(end + 8) != Get16(end + 10))
        return Fail(error, "one part of a divided archive");
    directory.count = Get16(end + 10);
    directory.size = Get32(end + 12);
    directory.offset = Get32(end + 16);

    std::uint64_t directoryEnd = fileSize - tailSize + at;
    if (!ReadZip64End(directoryEnd, directory, directoryEnd, error))
        return false;
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
// `end`. What the short form could hold must agree with it.
bool CZipArchive::ReadZip64End(std::uint64_t end,
                               SDirectory& directory,
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

bool CZipArchive::ReadDirectory(const SDirectory& directory, std::string& error)
{
    m_limit = directory.offset;
    m_entries.reserve(directory.count);
    // An upper bound that costs nothing: what is not written is not resident.
    const std::uint64_t fixed = directory.count * kCentralSize;
    m_names.reset(new char[directory.size - fixed + 1]);

    std::vector<unsigned char> piece(
        std::min<std::uint64_t>(directory.size, kPiece));
    std::uint64_t next = directory.offset;
    const std::uint64_t end = directory.offset + directory.size;
    std::size_t at = 0;
    std::size_t filled = 0;
    for (std::uint64_t i = 0; i < directory.count; ++i)
    {
        if (filled - at < kMaxRecord && next < end)
        {
            std::memmove(piece.data(), piece.data() + at, filled - at);
            filled -= at;
            at = 0;
            const auto more = static_cast<std::size_t>(
                std::min<std::uint64_t>(piece.size() - filled, end - next));
            if (!ReadAt(next, piece.data() + filled, more, error))
                return false;
            filled += more;
            next += more;
        }
        const unsigned char* const record = piece.data() + at;
        const std::size_t left = filled - at;
        if (left < kCentralSize || Get32(record) != kCentralSignature)
            return Fail(error, "the zip directory is damaged");
        const std::size_t length = kCentralSize + Get16(record + 28) +
                                   Get16(record + 30) + Get16(record + 32);
        // What is left must do for the entries to come: m_names has no room
        // for names that are longer than that.
        const std::uint64_t rest = (directory.count - i - 1) * kCentralSize;
        if (left < length || left - length + (end - next) < rest)
            return Fail(error, "the zip directory is damaged");
        if (!AddEntry(record, error))
            return false;
        at += length;
    }
    if (next != end || at != filled)
        return Fail(error, "the zip directory holds more than its entries");
    return true;
}

// Takes one record, whose name and fields are known to be there.
bool CZipArchive::AddEntry(const unsigned char* record, std::string& error)
{
    const std::size_t nameSize = Get16(record + 28);
    char* const name = m_names.get() + m_namesUsed;
    std::memcpy(name, record + kCentralSize, nameSize);
    m_namesUsed += nameSize;

    SZipEntry entry;
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
                       Get16(record + 34) == 0;
    // The local header repeats the name, so this much stands there at least.
    const std::uint64_t headers = kLocalSize + nameSize;
    const bool fits = whole && entry.offset <= m_limit &&
                      headers <= m_limit - entry.offset &&
                      entry.compressedSize <= m_limit - entry.offset - headers;
    if (!fits)
    {
        error = "entry '" + std::string(entry.name) +
                "' lies outside of the archive";
        return false;
    }
    m_entries.push_back(entry);
    return true;
}

void CZipArchive::Index()
{
    std::size_t slots = 8;
    while (slots < 2 * m_entries.size())
        slots *= 2;
    m_slots.assign(slots, 0);
    for (std::size_t i = 0; i < m_entries.size(); ++i)
    {
        std::uint32_t& slot = m_slots[SlotOf(m_entries[i].name)];
        if (slot == 0)
            slot = static_cast<std::uint32_t>(i + 1);
        else if (m_duplicate == nullptr)
            m_duplicate = &m_entries[i];
    }
}

// The slot that holds the name, or the free one where it belongs.
std::size_t CZipArchive::SlotOf(std::string_view name) const
{
    const std::size_t mask = m_slots.size() - 1;
    std::size_t at = Hash(name, m_seed) & mask;
    while (m_slots[at] != 0 && m_entries[m_slots[at] - 1].name != name)
        at = (at + 1) & mask;
    return at;
}

const SZipEntry* CZipArchive::Find(std::string_view name) const
{
    const std::uint32_t found = m_slots.empty() ? 0 : m_slots[SlotOf(name)];
    return found == 0 ? nullptr : &m_entries[found - 1];
}

bool CZipArchive::Locate(const SZipEntry& entry,
                         std::uint64_t& data,
                         std::string& error) const
{
    if ((entry.flags & SZipEntry::kEncrypted) != 0)
        return Fail(error, "encrypted");
    if (entry.method != SZipEntry::kStored &&
        entry.method != SZipEntry::kDeflated)
    {
        error = "unknown compression method " + std::to_string(entry.method);
        return false;
    }
    if (entry.method == SZipEntry::kStored &&
        entry.compressedSize != entry.size)
        return Fail(error, "stored in another size than its own");
    if (entry.size / kMaxDeflateRatio > entry.compressedSize)
        return Fail(error, "larger than its compressed bytes can give");

    // One read does for nearly every header.
    unsigned char near[512];
    const std::uint64_t room = m_limit - entry.offset;
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

bool CZipArchive::Read(const SZipEntry& entry,
                       std::string& bytes,
                       std::string& error) const
{
    std::uint64_t data = 0;
    if (!Locate(entry, data, error))
        return false;
    if (entry.size > kMaxWhole || entry.compressedSize > kMaxWhole)
        return Fail(error, "too large to be read at once");

    bytes.resize(entry.size);
    if (entry.method == SZipEntry::kStored)
    {
        if (!ReadAt(data, &bytes[0], bytes.size(), error))
            return false;
    }
    else
    {
        std::vector<char> packed(entry.compressedSize);
        if (!ReadAt(data, packed.data(), packed.size(), error))
            return false;
        static thread_local CInflater inflater;
        if (!inflater.Inflate(packed.data(), packed.size(), &bytes[0],
                              bytes.size()))
            return Fail(error, "damaged compressed data");
    }
    if (Crc32(0, bytes.data(), bytes.size()) != entry.crc)
        return Fail(error, "wrong checksum");
    return true;
}

bool CZipArchive::IsStale() const
{
    struct stat now = {};
    return stat(m_path.c_str(), &now) != 0 || now.st_dev != m_stamp.device ||
           now.st_ino != m_stamp.inode || now.st_size != m_stamp.size ||
           now.st_mtim.tv_sec != m_stamp.changed.tv_sec ||
           now.st_mtim.tv_nsec != m_stamp.changed.tv_nsec;
}

} // namespace KzaCore
