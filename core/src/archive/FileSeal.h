// SPDX-License-Identifier: Apache-2.0
//
// The content of a file as it was when its digest was made.
//
// A signature holds for the bytes that were read for the digest. A user who may
// write the file can change it afterwards, and a change through a mapping need
// not show in the file's times; a file server can change it, too. A seal
// therefore keeps the digest of each piece of the file, and a later read gives
// the bytes of the first reading or fails.
//
// Memory: 32 bytes for each 64 KiB of the file, and one piece.
//
// Threads: one object belongs to one thread.

#pragma once

#include "kza_core/Digest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KzaCore
{

class COpenedFile;

class CFileSeal
{
public:
    /// Reads a file from beginning to end, once. Called once per object.
    ///
    /// \param file   Regular; the size that it had when it was opened counts.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool Make(const COpenedFile& file, std::string& error);

    /// The digest of the whole file.
    [[nodiscard]] const TDigest& Digest() const { return m_digest; }

    /// Reads exactly `size` bytes of the file. Fails when they are not the
    /// bytes that Make() has read.
    ///
    /// \param file   Descriptor of the same file.
    /// \param error  Set to the reason after a failure.
    [[nodiscard]] bool ReadAt(int file,
                              std::uint64_t offset,
                              void* buffer,
                              std::size_t size,
                              std::string& error);

private:
    bool ReadPiece(int file, std::uint64_t piece, std::string& error);

    std::uint64_t m_size = 0;
    TDigest m_digest = {};
    std::vector<TDigest> m_pieces;

    // The piece that was read last, and its number.
    std::vector<unsigned char> m_bytes;
    std::uint64_t m_current = 0;
};

} // namespace KzaCore
