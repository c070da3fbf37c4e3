// SPDX-License-Identifier: Apache-2.0
//
// Zip archives whose entries are looked up by name.
//
// An archive is opened once: its directory is read into memory and the names
// are indexed.
//
// Threads: an open archive may be read by several threads at once; Open() and
// the destructor belong to one.

#pragma once

#include "archive/ZipFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

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
    ///         has no entries then.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The same for a file that is open already.
    [[nodiscard]] bool Open(COpenedFile file, std::string& error);

    /// The first entry of exactly that name, null when there is none; lives as
    /// long as the archive. Takes the same time with few entries and with many.
    [[nodiscard]] const CZipEntry* Find(std::string_view name) const;

    /// All entries, in the directory's order; their names live as long as the
    /// archive.
    [[nodiscard]] const std::vector<CZipEntry>& Entries() const
    {
        return m_entries;
    }

    /// Reads the whole content of an entry, checked against its CRC.
    ///
    /// \param bytes  Replaced by the content; undefined after a failure.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Read(const CZipEntry& entry,
                            std::string& bytes,
                            std::string& error) const;

    /// See CZipFile.
    [[nodiscard]] bool IsStale() const { return m_file.IsStale(); }

private:
    bool ReadDirectory(std::string& error);
    void Index();
    [[nodiscard]] std::size_t SlotOf(std::string_view name) const;

    CZipFile m_file;
    std::unique_ptr<char[]> m_names; // the names, end to end
    std::vector<CZipEntry> m_entries;

    // Open addressing over m_entries: position plus one, 0 for a free slot.
    // The size is a power of two and at least twice the number of entries.
    std::vector<std::uint32_t> m_slots;
    std::uint64_t m_seed = 0;
};

} // namespace KzaCore
