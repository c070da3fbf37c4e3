// SPDX-License-Identifier: Apache-2.0
//
// Reading of zip archives that may be hostile, torn or changing on disk.
//
// An archive is opened once: its directory is read into memory, every figure
// in it is checked against the file, and the names are indexed. Contents are
// read with pread(2) and never mapped, so that a file truncated by somebody
// else is an error and not a SIGBUS.
//
// Threads: an open archive may be read by several threads at once; Open() and
// the destructor belong to one.

#pragma once

#include "Descriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

/// One entry of the archive's directory.
struct SZipEntry
{
    std::string_view name; ///< as stored; lives as long as the archive
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;       ///< bytes once unpacked
    std::uint64_t offset = 0;     ///< of the local header in the file
    std::uint32_t crc = 0;        ///< CRC-32 of the unpacked bytes
    std::uint32_t attributes = 0; ///< external attributes
    std::uint32_t dosDateTime =
        0;                    ///< date in the upper half, time in the lower
    std::uint16_t method = 0; ///< see kStored, kDeflated
    std::uint16_t flags = 0;  ///< general purpose bits
    std::uint8_t system = 0;  ///< on which the entry was made; see kUnix

    static constexpr std::uint16_t kStored = 0;
    static constexpr std::uint16_t kDeflated = 8;
    static constexpr std::uint16_t kEncrypted = 0x0001;
    static constexpr std::uint16_t kSizesFollow = 0x0008;
    static constexpr std::uint16_t kUtf8 = 0x0800;
    static constexpr std::uint8_t kUnix = 3;

    /// True when the name says directory, by its trailing slash.
    [[nodiscard]] bool IsDirectory() const
    {
        return !name.empty() && name.back() == '/';
    }

    /// The Unix file mode in the entry, 0 when it has none.
    [[nodiscard]] mode_t UnixMode() const
    {
        return system == kUnix ? static_cast<mode_t>(attributes >> 16) : 0;
    }
};

class CZipArchive
{
public:
    CZipArchive() = default;

    CZipArchive(const CZipArchive&) = delete;
    CZipArchive& operator=(const CZipArchive&) = delete;

    /// Opens an archive and indexes its directory. Once per object.
    ///
    /// \param error  Set to the reason after a failure; names no file.
    ///
    /// \return false for anything that is not a whole zip archive; the object
    ///         is then as good as empty.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The first entry of exactly that name, null when there is none. Does not
    /// depend on how many there are. Lives as long as the archive.
    [[nodiscard]] const SZipEntry* Find(std::string_view name) const;

    /// All entries, in the directory's order.
    [[nodiscard]] const std::vector<SZipEntry>& Entries() const
    {
        return m_entries;
    }

    /// The first entry whose name an earlier one has, null when there is none.
    [[nodiscard]] const SZipEntry* Duplicate() const { return m_duplicate; }

    /// Reads the whole content of an entry, checked against its CRC.
    ///
    /// \param bytes  Replaced by the content; undefined after a failure.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Read(const SZipEntry& entry,
                            std::string& bytes,
                            std::string& error) const;

    /// Finds where the content of an entry begins, and checks that its local
    /// header agrees with the directory and that the method can be read.
    ///
    /// \param data   Set to the offset of the first compressed byte.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Locate(const SZipEntry& entry,
                              std::uint64_t& data,
                              std::string& error) const;

    /// Reads exactly `size` bytes of the file.
    [[nodiscard]] bool ReadAt(std::uint64_t offset,
                              void* buffer,
                              std::size_t size,
                              std::string& error) const;

    /// True when the path no longer leads to the file that was opened, or that
    /// file has changed since.
    [[nodiscard]] bool IsStale() const;

private:
    // Identity of a file and of its content.
    struct SStamp
    {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec changed = {};
    };

    // Where the directory lies.
    struct SDirectory
    {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
        std::uint64_t count = 0;
    };

    bool OpenFile(const std::string& path, std::string& error);
    bool FindDirectory(SDirectory& directory, std::string& error) const;
    bool ReadZip64End(std::uint64_t end,
                      SDirectory& directory,
                      std::uint64_t& directoryEnd,
                      std::string& error) const;
    bool ReadDirectory(const SDirectory& directory, std::string& error);
    bool AddEntry(const unsigned char* record, std::string& error);
    void Index();
    [[nodiscard]] std::size_t SlotOf(std::string_view name) const;

    std::string m_path;
    CDescriptor m_file;
    SStamp m_stamp;
    std::uint64_t m_limit = 0; // where the entries end, the directory begins
    std::unique_ptr<char[]> m_names; // the names, end to end
    std::size_t m_namesUsed = 0;
    std::vector<SZipEntry> m_entries;
    const SZipEntry* m_duplicate = nullptr;

    // Open addressing over m_entries: position plus one, 0 for a free slot.
    // The size is a power of two and at least twice the number of entries.
    std::vector<std::uint32_t> m_slots;
    std::uint64_t m_seed = 0;
};

} // namespace KzaCore
