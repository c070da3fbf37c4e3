// SPDX-License-Identifier: Apache-2.0
//
// The check whether an archive may be unpacked. It reads the archive alone and
// runs before anything on disk is changed.
//
// An archive may have a million entries. For each, 8 bytes are kept while the
// check lasts and nothing afterwards: an entry is read and checked again when
// it is unpacked, so a change of the archive in between cannot evade the check.
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

/// Where one entry is unpacked to, and from.
struct CPlannedEntry
{
    /// The path under the destination: components joined by "/", without a
    /// slash at its end; empty for the destination itself. A part of the
    /// entry's name.
    std::string_view path;

    std::uint64_t data = 0; ///< offset of its first compressed byte
};

/// Directories that may be above a file. Unpacking holds a descriptor for each
/// of them, and the time that the check takes grows with them.
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

/// Checks the names of all entries, and no other property.
[[nodiscard]] bool CheckNames(const CZipFile& archive,
                              std::size_t maxLength,
                              std::string& error);

/// Checks the whole archive: each entry, and that no two entries have the same
/// path, need a path both as file and as directory, or share their bytes.
///
/// \param maxLength  Bytes that a path may have.
/// \param error      Set to the reason after a failure; names the entry.
[[nodiscard]] bool CheckArchive(const CZipFile& archive,
                                std::size_t maxLength,
                                std::string& error);

} // namespace KzaCore
