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
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
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

    /// Sets the archives: paths joined by ";". Those that stay are kept open.
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

    // Tells without a look into them which archives cannot hold a name: each
    // archive has a bit, set in the word that the name's hash chooses. Most of
    // many archives are passed over for the price of one look into memory.
    class CHints
    {
    public:
        void Clear() { m_words.reset(); }
        void Add(std::size_t member, const CZipArchive& archive);

        /// The bits of the archives that may hold one of the names.
        [[nodiscard]] std::uint64_t Of(
            const std::vector<std::string>& names) const;

        /// The bit of an archive; the first one beyond the word's bits shares
        /// that of the first.
        [[nodiscard]] static std::uint64_t Bit(std::size_t member)
        {
            return std::uint64_t(1) << (member % 64);
        }

    private:
        struct Free
        {
            void operator()(std::uint64_t* words) const { std::free(words); }
        };

        // Null before the first archive. From calloc(), which leaves the words
        // that no name chooses untouched and so without memory.
        std::unique_ptr<std::uint64_t[], Free> m_words;
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
    CHints m_hints; // of the members that are open
    std::chrono::steady_clock::time_point m_lastRefresh{};
};

} // namespace KzaCore
