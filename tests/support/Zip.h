// SPDX-License-Identifier: Apache-2.0
//
// Zip archives as tests need them: good ones, and ones that no archiver makes.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace TestSupport
{

/// One entry. What is set beyond name and content says something else than
/// the truth, or says it in another form.
struct CZipInput
{
    CZipInput() = default;
    CZipInput(std::string fileName, std::string fileContent)
        : name(std::move(fileName)), content(std::move(fileContent))
    {
    }

    std::string name;
    std::string content;

    mode_t mode = 0100644;    ///< Unix mode; 0 leaves it out
    std::uint8_t system = 3;  ///< on which it was made: 0 DOS, 3 Unix
    bool deflate = true;      ///< else stored
    bool sizesFollow = false; ///< sizes behind the data, zeros before them
    bool zip64 = false;       ///< sizes and offset in 64-bit fields
    std::uint16_t flags = 0;  ///< further general purpose bits

    std::optional<std::uint16_t> method;      ///< in both headers
    std::optional<std::uint32_t> crc;         ///< in both headers
    std::optional<std::uint64_t> size;        ///< in both headers
    std::optional<std::string> localName;     ///< in the local header
    std::optional<std::uint32_t> localCrc;    ///< in the local header
    std::optional<std::uint64_t> localSize;   ///< in the local header
    std::optional<std::uint16_t> localMethod; ///< in the local header
    std::optional<std::uint64_t> offset;      ///< in the directory
    std::optional<std::uint64_t> packedSize;  ///< in the directory
    std::optional<std::string> packed;        ///< instead of the real data
    std::optional<std::uint16_t> diskNumber;  ///< in the directory
    std::optional<std::uint32_t> zip64Disk;   ///< in the 64-bit fields instead
};

struct CZipOptions
{
    bool zip64End = false;  ///< write the zip64 end record, fill the short one
    bool fullDisks = false; ///< fill the short one's disk numbers too
    std::uint32_t disk = 0; ///< in the zip64 end record
    std::string before;     ///< bytes before the first entry
    std::string comment;
};

std::string MakeZip(const std::vector<CZipInput>& files,
                    const CZipOptions& options = {});

/// A directory entry, whose name ends with a slash.
CZipInput ZipDirectory(const std::string& name, mode_t mode = 040755);

/// Bytes that look random, always the same for a seed, and do not compress.
std::string Noise(std::size_t size, std::uint32_t seed = 1);

/// Text that compresses about as a program does.
std::string Prose(std::size_t size, std::uint32_t seed = 1);

} // namespace TestSupport
