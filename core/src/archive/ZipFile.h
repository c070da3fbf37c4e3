// SPDX-License-Identifier: Apache-2.0
//
// Zip archives that may be hostile, torn or changing on disk. ZipWalk.h goes
// through the entries.
//
// Every number in the archive is checked against the file. Contents are read
// with pread(2) and never mapped, so that a truncation by another process is an
// error and not a SIGBUS. The memory in use does not depend on the archive.
//
// Threads: an open archive may be read by several threads at once; Open() and
// the destructor belong to one.

#pragma once

#include "archive/FileSeal.h"
#include "kza_core/OpenedFile.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KzaCore
{

/// One entry of the archive's directory.
struct CZipEntry
{
    std::string_view name; ///< as stored; lives as long as its giver promises
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

/// An entry's name for messages: quoted, cut when it is long, control
/// characters as their codes.
[[nodiscard]] std::string ShowName(std::string_view name);

class CZipFile
{
public:
    CZipFile() = default;

    CZipFile(const CZipFile&) = delete;
    CZipFile& operator=(const CZipFile&) = delete;

    /// Opens an archive and finds its directory. Once per object.
    ///
    /// \param error  Set to the reason after a failure; names no file.
    ///
    /// \return false for anything that is not a zip archive.
    [[nodiscard]] bool Open(const std::string& path, std::string& error);

    /// The same for a file that is open already.
    ///
    /// \param seal  When not null, made for this file: every read goes through
    ///              it. The archive then belongs to one thread.
    [[nodiscard]] bool Open(COpenedFile file,
                            std::unique_ptr<CFileSeal> seal,
                            std::string& error);

    /// Gives the open file away. The object cannot be used afterwards.
    [[nodiscard]] COpenedFile Release() { return std::move(m_file); }

    /// The number of entries, as the end record gives it.
    [[nodiscard]] std::size_t Count() const
    {
        return static_cast<std::size_t>(m_directory.count);
    }

    /// The bytes that the names of all entries have together, at most.
    [[nodiscard]] std::size_t MaxNames() const;

    /// Finds where the content of an entry begins, and checks that its local
    /// header agrees with the directory and that the method can be read.
    ///
    /// \param data   Set to the offset of the first compressed byte.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Locate(const CZipEntry& entry,
                              std::uint64_t& data,
                              std::string& error) const;

    /// Reads exactly `size` bytes of the file.
    [[nodiscard]] bool ReadAt(std::uint64_t offset,
                              void* buffer,
                              std::size_t size,
                              std::string& error) const;

    /// True when the path no longer leads to the file that was opened, or that
    /// file has changed since.
    [[nodiscard]] bool IsStale() const { return !m_file.IsInPlace(); }

private:
    friend class CZipWalk;

    // The place of the directory in the file.
    struct CDirectory
    {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
        std::uint64_t count = 0;
    };

    bool ReadTail(std::size_t most,
                  std::vector<unsigned char>& tail,
                  std::string& error) const;
    bool FindEndRecord(std::vector<unsigned char>& tail,
                       std::size_t& at,
                       std::string& error) const;
    bool FindDirectory(std::string& error);
    bool ReadZip64End(std::uint64_t end,
                      CDirectory& directory,
                      std::uint64_t& directoryEnd,
                      std::string& error) const;

    COpenedFile m_file;
    std::unique_ptr<CFileSeal> m_seal;
    CDirectory m_directory; // the entries end before it
};

} // namespace KzaCore
