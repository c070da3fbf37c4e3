// SPDX-License-Identifier: Apache-2.0
//
// Unpacks the content of archive entries into open files.
//
// Memory: one buffer of 4 MiB for all entries; an entry touches no more of it
// than it needs. An entry that fits into the buffer, packed and unpacked, is
// unpacked at once, a larger one in pieces.
//
// Threads: one object belongs to one thread.

#pragma once

#include "archive/Inflate.h"
#include "archive/ZipFile.h"

#include <cstdint>
#include <memory>
#include <string>

namespace KzaCore
{

class CEntryExtractor
{
public:
    /// \param archive  Open; outlives the object.
    explicit CEntryExtractor(const CZipFile& archive);

    /// Writes the content of an entry, which must have the size and the CRC
    /// that the archive gives.
    ///
    /// \param data   Offset of the first compressed byte.
    /// \param file   Open for writing at its beginning.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Extract(const CZipEntry& entry,
                               std::uint64_t data,
                               int file,
                               std::string& error);

private:
    bool ExtractWhole(const CZipEntry& entry,
                      std::uint64_t data,
                      int file,
                      std::string& error);
    bool CopyStored(const CZipEntry& entry,
                    std::uint64_t data,
                    int file,
                    std::string& error);
    bool InflateInPieces(const CZipEntry& entry,
                         std::uint64_t data,
                         int file,
                         std::string& error);

    const CZipFile& m_archive;
    CInflater m_inflater;
    std::unique_ptr<unsigned char[]> m_buffer;
};

} // namespace KzaCore
