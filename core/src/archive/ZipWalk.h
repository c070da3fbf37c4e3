// SPDX-License-Identifier: Apache-2.0
//
// One pass over the entries of a zip archive, in the directory's order.
//
//     CZipWalk walk(file);
//     while (const CZipEntry* entry = walk.Next(error))
//         ...
//     return walk.IsWhole();
//
// Threads: one walk belongs to one thread.

#pragma once

#include "archive/ZipFile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KzaCore
{

class CZipWalk
{
public:
    /// \param file  Open; outlives the walk.
    explicit CZipWalk(const CZipFile& file);

    /// The next entry, good until the next call; null after the last and after
    /// a failure.
    ///
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] const CZipEntry* Next(std::string& error);

    /// True when the directory was read to its last byte and had as many
    /// entries as the end record gives.
    [[nodiscard]] bool IsWhole() const { return m_isWhole; }

private:
    bool Fill(std::string& error);
    bool Take(const unsigned char* record, std::string& error);

    const CZipFile& m_file;
    std::vector<unsigned char> m_piece;
    std::size_t m_at = 0;     // in m_piece
    std::size_t m_filled = 0; // of m_piece
    std::uint64_t m_next;     // of the file, to be read
    std::uint64_t m_end;      // of the directory
    std::uint64_t m_left;     // entries to come
    bool m_isWhole = false;
    CZipEntry m_entry;
};

} // namespace KzaCore
