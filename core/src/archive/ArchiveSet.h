// SPDX-License-Identifier: Apache-2.0
//
// An ordered set of archives, in which modules and data files are searched.
//
// Each archive is opened and indexed on first use, and again when its file has
// changed on disk; the head of the source says when files are compared.
//
// Threads: one object belongs to one thread.

#pragma once

#include "archive/ZipArchive.h"
#include "kza_core/Owner.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace KzaCore
{

class CArchiveSet
{
public:
    enum class EResult
    {
        Found,
        Missing,
        Broken ///< an archive has the entry, but its bytes cannot be read
    };

    /// Sets the archives: paths joined by ";". Archives that stay in the list
    /// are kept open. A path that is listed twice counts once, at its first
    /// place. A path that is not absolute is skipped like a broken archive: it
    /// may be part of a path with a ";" in it, and any user may have put a file
    /// of that name into the current directory.
    void SetPaths(const std::string& list);

    /// What becomes of archives that others can change, from the next that is
    /// opened on. One that is refused is skipped as a broken one is.
    void SetOwnerRule(EOwnerRule rule) { m_rule = rule; }

    /// Reads the first of the named entries that an archive holds, trying all
    /// names in one archive before the next archive.
    ///
    /// \param names  Entry names, in order of preference.
    /// \param bytes  Out: the content, when found.
    /// \param place  Out: `<archive>/<name>`, when found or broken.
    /// \param error  Out: the reason, when broken.
    EResult Read(const std::vector<std::string>& names,
                 std::string& bytes,
                 std::string& place,
                 std::string& error);

    /// The places where the names were looked for, one line each, beginning
    /// with "\n\t" as the lines of Lua's own searchers do.
    [[nodiscard]] std::string DescribeMiss(
        const std::vector<std::string>& names) const;

private:
    // Untried: `archive` is null. Usable: an archive and no problem. Broken: an
    // archive and a problem.
    struct CMember
    {
        std::string path;
        std::unique_ptr<CZipArchive> archive;
        std::string problem; // the reason why the archive cannot be used

        // A warning has been logged since the archive was last usable.
        bool warned = false;

        [[nodiscard]] bool IsTried() const { return archive != nullptr; }

        [[nodiscard]] bool IsUsable() const
        {
            return IsTried() && problem.empty();
        }
    };

    void Open(std::size_t member);
    bool OpenFile(CMember& member) const;
    bool Refresh(std::size_t member);
    bool RefreshAll();
    std::size_t Find(const std::vector<std::string>& names,
                     const CZipEntry*& entry);
    std::size_t FindFresh(const std::vector<std::string>& names,
                          const CZipEntry*& entry);

    static constexpr std::size_t kNone = ~std::size_t(0);

    std::string m_list; // the last argument of SetPaths()
    EOwnerRule m_rule = EOwnerRule::Ignore;
    std::vector<CMember> m_members; // in the list's order, each path once

    // The last time when all opened archives were compared with their files.
    std::chrono::steady_clock::time_point m_lastRefresh{};
};

} // namespace KzaCore
