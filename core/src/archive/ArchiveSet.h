// SPDX-License-Identifier: Apache-2.0
//
// The archives that modules and data files are searched in, in order.
//
// Each archive is opened and indexed once, on first use, and again when it has
// changed on disk. To keep a look-up free of system calls for archives that
// hold nothing of that name, a change is looked for in the archive that has
// the name, in all of them when none has it, and in all of them when the last
// such look is a second old.
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
    /// path that comes a second time counts once, at its first place.
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
    struct SMember
    {
        std::string path;
        std::unique_ptr<CZipArchive> archive; // null until tried
        std::string problem; // why it cannot be used, empty when it can
        bool warned = false;

        [[nodiscard]] bool IsUsable() const
        {
            return archive != nullptr && problem.empty();
        }
    };

    void Open(std::size_t member);
    bool Refresh(std::size_t member);
    bool RefreshAll();
    std::size_t Find(const std::vector<std::string>& names,
                     const SZipEntry*& entry);
    std::size_t FindFresh(const std::vector<std::string>& names,
                          const SZipEntry*& entry);

    static constexpr std::size_t kNone = ~std::size_t(0);

    std::string m_list;
    std::vector<SMember> m_members;
    std::chrono::steady_clock::time_point m_lastRefresh{};
};

} // namespace KzaCore
