// SPDX-License-Identifier: Apache-2.0
//
// Whether an archive may be unpacked, told from the archive alone before
// anything on disk is touched.
//
// An archive may have a million entries. Of each, 8 bytes are kept while the
// check lasts and nothing afterwards: when an entry's turn comes, it is read
// and planned once more, so a file that is changed meanwhile gains nothing.
//
// Threads: any; one call reads one archive.

#pragma once

#include "archive/ZipFile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KzaCore
{

/// What is to become of one entry.
struct CPlannedEntry
{
    /// The path under the destination: components joined by "/", without a
    /// slash at its end; empty for the destination itself. A part of the
    /// entry's name.
    std::string_view path;

    std::uint64_t data = 0; ///< where its first compressed byte stands
};

/// Directories that may be above a file. The way to a file takes a descriptor
/// for each of them, and a check of all paths a time that grows with them.
inline constexpr std::size_t kMaxLevels = 100;

/// The path that an entry name stands for.
///
/// Only plain relative paths pass, with "./" before them and a slash at the
/// end at most: no "..", ".", empty or overlong component, no backslash, no
/// NUL, nothing but UTF-8, no more than kMaxLevels directories.
///
/// \param name   As in the archive.
/// \param path   Out: the part of `name` that is the path.
/// \param error  Set to the reason after a failure.
[[nodiscard]] bool PlanPath(std::string_view name,
                            std::string_view& path,
                            std::string& error);

/// The directory that a path is in, empty for the destination.
[[nodiscard]] std::string_view ParentOf(std::string_view path);

/// Checks one entry by its name alone.
///
/// \param maxLength  Bytes that a path may have.
/// \param planned    Out: the path.
/// \param error      Set to the reason after a failure; names the entry.
[[nodiscard]] bool PlanName(const CZipEntry& entry,
                            std::size_t maxLength,
                            CPlannedEntry& planned,
                            std::string& error);

/// Checks one entry: its name, its kind, its method, its local header.
///
/// \param maxLength  Bytes that a path may have.
/// \param error      Set to the reason after a failure; names the entry.
[[nodiscard]] bool PlanEntry(const CZipFile& archive,
                             const CZipEntry& entry,
                             std::size_t maxLength,
                             CPlannedEntry& planned,
                             std::string& error);

/// Checks the names of all entries and nothing else of them.
[[nodiscard]] bool CheckNames(const CZipFile& archive,
                              std::size_t maxLength,
                              std::string& error);

/// Checks the whole archive: each entry, and that none excludes another or
/// shares its bytes.
///
/// \param maxLength  Bytes that a path may have.
/// \param error      Set to the reason after a failure; names the entry.
[[nodiscard]] bool CheckArchive(const CZipFile& archive,
                                std::size_t maxLength,
                                std::string& error);

} // namespace KzaCore
