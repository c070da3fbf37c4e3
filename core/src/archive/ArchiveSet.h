// SPDX-License-Identifier: Apache-2.0
//
// The archives that modules and data files are searched in, in order.
//
// Each archive is opened and indexed once, on first use, and again when it has
// changed on disk; the source says when that is looked for.
//
// Threads: one object belongs to one thread.

#pragma once

#include "archive/ZipArchive.h"

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
        Broken ///< there, but its bytes cannot be had
    };

    /// Sets the archives: paths joined by ";". Those that stay are kept open. A
    /// path that comes a second time counts once, at its first place. One that
    /// is not absolute is skipped as a broken archive is: it may be a part of a
    /// path with a ";" in it, and what the current directory holds under that
    /// name could be anybody's.
    void SetPaths(const std::string& list);

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

    /// One line for each place where the names were looked for, each beginning
    /// with "\n\t", in the style of Lua's own searchers.
    [[nodiscard]] std::string DescribeMiss(
        const std::vector<std::string>& names) const;

private:
    // Untried: without an archive. Usable: with one and no problem. Broken:
    // with one and a problem.
    struct CMember
    {
        std::string path;
        std::unique_ptr<CZipArchive> archive;
        std::string problem; // why it cannot be used
        bool warned =
            false; // of this problem or one before, since it was usable

        [[nodiscard]] bool IsTried() const { return archive != nullptr; }

        [[nodiscard]] bool IsUsable() const
        {
            return IsTried() && problem.empty();
        }
    };

    void Open(std::size_t member);
    bool Refresh(std::size_t member);
    bool RefreshAll();
    std::size_t Find(const std::vector<std::string>& names,
                     const CZipEntry*& entry);
    std::size_t FindFresh(const std::vector<std::string>& names,
                          const CZipEntry*& entry);

    static constexpr std::size_t kNone = ~std::size_t(0);

    std::string m_list;             // as last set
    std::vector<CMember> m_members; // in the list's order, each path once

    // When all files were last compared with what was opened.
    std::chrono::steady_clock::time_point m_lastRefresh{};
};

} // namespace KzaCore
