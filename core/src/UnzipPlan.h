// SPDX-License-Identifier: Apache-2.0
//
// What Unzip() is about to do, checked against the archive alone before
// anything on disk is touched.
//
// Threads: one object belongs to one thread.

#pragma once

#include "ZipArchive.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

/// The path that an entry name stands for.
///
/// Only plain relative paths pass, with "./" before them and a slash at the
/// end at most: no "..", ".", empty or overlong component, no backslash, no
/// NUL, nothing but UTF-8.
///
/// \param name   As in the archive.
/// \param path   Out: the part of `name` that is the path.
/// \param error  Set to the reason after a failure.
[[nodiscard]] bool PlanPath(std::string_view name,
                            std::string_view& path,
                            std::string& error);

/// A name as messages show it: quoted, cut when it is long, control characters
/// as their codes.
[[nodiscard]] std::string ShowName(std::string_view name);

class CUnzipPlan
{
public:
    /// Checks the whole archive: names, kinds of entries, methods, local
    /// headers, entries that exclude each other or share their bytes.
    ///
    /// \param archive    Open; outlives the plan.
    /// \param maxLength  Bytes that a path may have.
    /// \param error      Set to the reason after a failure; names the entry.
    [[nodiscard]] bool Make(const CZipArchive& archive,
                            std::size_t maxLength,
                            std::string& error);

    /// The path of an entry under the destination: components joined by "/",
    /// without a slash at its end; empty for the destination itself.
    [[nodiscard]] std::string_view PathOf(std::size_t index) const
    {
        const SPlanned& planned = m_entries[index];
        return m_archive->Entries()[index].name.substr(planned.pathBegin,
                                                       planned.pathLength);
    }

    /// Where the first compressed byte of an entry stands in the file.
    [[nodiscard]] std::uint64_t DataOf(std::size_t index) const
    {
        return m_archive->Entries()[index].offset +
               m_entries[index].headerLength;
    }

    /// Positions of the entries sorted by path, so that a directory is
    /// followed by all that is in it.
    [[nodiscard]] const std::vector<std::uint32_t>& ByPath() const
    {
        return m_byPath;
    }

private:
    // Small, since an archive may have very many.
    struct SPlanned
    {
        std::uint32_t headerLength;
        std::uint16_t pathBegin; // in the name
        std::uint16_t pathLength;
    };

    bool Add(const SZipEntry& entry, std::size_t maxLength, std::string& error);
    bool CheckPaths(std::string& error);
    bool CheckOverlaps(std::string& error) const;

    const CZipArchive* m_archive = nullptr;
    std::vector<SPlanned> m_entries; // as in the archive
    std::vector<std::uint32_t> m_byPath;
};

} // namespace KzaCore
