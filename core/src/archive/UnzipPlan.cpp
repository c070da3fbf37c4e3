// SPDX-License-Identifier: Apache-2.0

#include "archive/UnzipPlan.h"

#include "archive/ZipWalk.h"
#include "base/Error.h"
#include "base/Hash.h"
#include "base/RandomNumber.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <vector>

#ifndef NAME_MAX
#define NAME_MAX 255
#endif

namespace KzaCore
{

namespace
{

bool IsContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// True for UTF-8 in its shortest form, without surrogates.
bool IsUtf8(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size())
    {
        const auto lead = static_cast<unsigned char>(text[i++]);
        if (lead < 0x80)
            continue;
        const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || text.size() - i < std::size_t(more))
            return false;
        const auto second = static_cast<unsigned char>(text[i]);
        const bool isWrong = (lead == 0xE0 && second < 0xA0) ||
                             (lead == 0xED && second > 0x9F) ||
                             (lead == 0xF0 && second < 0x90) ||
                             (lead == 0xF4 && second > 0x8F);
        if (isWrong)
            return false;
        for (int k = 0; k < more; ++k)
            if (!IsContinuation(static_cast<unsigned char>(text[i++])))
                return false;
    }
    return true;
}

bool CheckComponent(std::string_view component, std::string& error)
{
    if (component == "..")
        return Fail(error, "its name leads out of its directory");
    if (component.empty() || component == ".")
        return Fail(error, "its name is not a plain path");
    if (component.size() > NAME_MAX)
        return Fail(error, "its name is too long");
    return true;
}

// The entry's kind must be a file or a directory, and its name must say the
// same.
bool CheckKind(const CZipEntry& entry, std::string& error)
{
    const mode_t mode = entry.UnixMode();
    if (S_ISLNK(mode))
        return Fail(error, "it is a symbolic link");
    // Info-ZIP marks an entry that it read from a pipe as a pipe; its content
    // is that of a file.
    const bool isFile = S_ISREG(mode) || S_ISFIFO(mode);
    if ((mode & S_IFMT) != 0 && !isFile && !S_ISDIR(mode))
        return Fail(error, "it is a device or another special file");
    if (entry.IsDirectory() ? isFile : S_ISDIR(mode))
        return Fail(error, "its name and its mode disagree on what it is");
    if (entry.IsDirectory() && entry.size != 0)
        return Fail(error, "it is a directory with contents");
    return true;
}

// Refuses an entry by its name.
bool Refuse(std::string& error, std::string_view name, const std::string& why)
{
    return Fail(error, "entry " + ShowName(name) + ": " + why);
}

// Finds entries that cannot be unpacked beside another one.
class CConflicts
{
public:
    CConflicts(const CZipFile& archive, std::size_t maxLength)
        : m_archive(archive), m_maxLength(maxLength), m_seed(RandomNumber())
    {
    }

    bool CheckEntries(std::string& error);
    bool CheckPaths(std::string& error);
    bool CheckOverlaps(std::string& error);

private:
    // A path as a number, with the kind of its entry in the lowest bit. Two
    // different paths have the same number in one of ten million archives of
    // the largest size, and then not again with the next seed.
    [[nodiscard]] std::uint64_t KeyOf(std::string_view path,
                                      bool isDirectory) const
    {
        return (HashBytes(path, m_seed) & ~std::uint64_t(1)) |
               (isDirectory ? 1 : 0);
    }

    bool RefuseTwice(std::uint64_t key, std::string& error) const;
    bool CheckParents(std::string_view path, std::string& error) const;

    const CZipFile& m_archive;
    std::size_t m_maxLength;
    std::uint64_t m_seed;
    std::vector<std::uint64_t> m_keys; // of all paths, sorted
    bool m_isInOrder = true; // the entries' bytes are in the directory's order
};

bool CConflicts::CheckEntries(std::string& error)
{
    m_keys.reserve(m_archive.Count());
    std::uint64_t end = 0;
    CZipWalk walk(m_archive);
    CPlannedEntry planned;
    while (const CZipEntry* const entry = walk.Next(error))
    {
        if (!PlanEntry(m_archive, *entry, m_maxLength, planned, error))
            return false;
        m_keys.push_back(KeyOf(planned.path, entry->IsDirectory()));
        m_isInOrder = m_isInOrder && entry->offset >= end;
        end = planned.data + entry->compressedSize;
    }
    std::sort(m_keys.begin(), m_keys.end());
    return walk.IsWhole();
}

bool CConflicts::CheckPaths(std::string& error)
{
    const auto twice = std::adjacent_find(m_keys.begin(), m_keys.end(),
                                          [](std::uint64_t a, std::uint64_t b)
                                          { return (a ^ b) <= 1; });
    if (twice != m_keys.end())
        return RefuseTwice(*twice, error);

    std::string last;
    CZipWalk walk(m_archive);
    while (const CZipEntry* const entry = walk.Next(error))
    {
        std::string_view path;
        if (!PlanPath(entry->name, path, error))
            return Refuse(error, entry->name, error);
        const std::string_view parent = ParentOf(path);
        if (parent == last)
            continue;
        last = parent;
        if (!CheckParents(path, error))
            return false;
    }
    m_keys = {};
    return walk.IsWhole();
}

bool CConflicts::RefuseTwice(std::uint64_t key, std::string& error) const
{
    CZipWalk walk(m_archive);
    while (const CZipEntry* const entry = walk.Next(error))
    {
        std::string_view path;
        if (PlanPath(entry->name, path, error) &&
            (KeyOf(path, false) ^ key) <= 1)
            return Refuse(error, path, "it is there twice");
    }
    if (walk.IsWhole())
        error = "the file has changed meanwhile";
    return false;
}

// No directory that a path is in may be a file of the archive.
bool CConflicts::CheckParents(std::string_view path, std::string& error) const
{
    while (!(path = ParentOf(path)).empty())
        if (std::binary_search(m_keys.begin(), m_keys.end(),
                               KeyOf(path, false)))
            return Refuse(error, path, "it is a file and a directory");
    return true;
}

// Entries that share their bytes make an archive of a few kilobytes unpack to
// petabytes.
bool CConflicts::CheckOverlaps(std::string& error)
{
    if (m_isInOrder)
        return true; // CheckEntries() would have seen an overlap
    std::vector<std::uint64_t> begins;
    begins.reserve(m_archive.Count());
    CZipWalk walk(m_archive);
    while (const CZipEntry* const entry = walk.Next(error))
        begins.push_back(entry->offset);
    if (!walk.IsWhole())
        return false;
    std::sort(begins.begin(), begins.end());

    CZipWalk again(m_archive);
    CPlannedEntry planned;
    while (const CZipEntry* const entry = again.Next(error))
    {
        if (!PlanEntry(m_archive, *entry, m_maxLength, planned, error))
            return false;
        auto next =
            std::lower_bound(begins.begin(), begins.end(), entry->offset);
        if (next != begins.end() && ++next != begins.end() &&
            planned.data + entry->compressedSize > *next)
            return Refuse(error, entry->name,
                          "it shares its bytes with another entry");
    }
    return again.IsWhole();
}

} // namespace

bool PlanPath(std::string_view name, std::string_view& path, std::string& error)
{
    if (name.empty())
        return Fail(error, "it has no name");
    if (name.find('\0') != std::string_view::npos)
        return Fail(error, "its name holds a NUL");
    if (name.find('\\') != std::string_view::npos)
        return Fail(error, "its name holds a backslash");
    if (name.front() == '/')
        return Fail(error, "its name is an absolute path");
    if (!IsUtf8(name))
        return Fail(error, "its name is not UTF-8");

    while (name.substr(0, 2) == "./")
        name.remove_prefix(2);
    if (!name.empty() && name.front() == '/')
        return Fail(error, "its name is an absolute path");
    const bool isDirectory = !name.empty() && name.back() == '/';
    if (isDirectory)
        name.remove_suffix(1);
    path = name;
    for (std::size_t level = 0; !name.empty(); ++level)
    {
        const std::size_t end = std::min(name.find('/'), name.size());
        if (!CheckComponent(name.substr(0, end), error))
            return false;
        if (end + 1 == name.size()) // a second slash at the end
            return CheckComponent({}, error);
        if (level == kMaxLevels && (isDirectory || end < name.size()))
            return Fail(error, "too many directories deep");
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    return true;
}

std::string_view ParentOf(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return path.substr(0, slash == std::string_view::npos ? 0 : slash);
}

bool PlanName(const CZipEntry& entry,
              std::size_t maxLength,
              CPlannedEntry& planned,
              std::string& error)
{
    std::string why;
    if (!PlanPath(entry.name, planned.path, why))
        return Refuse(error, entry.name, why);
    if (planned.path.size() > maxLength)
        return Refuse(error, entry.name, "its name is too long");
    return true;
}

bool PlanEntry(const CZipFile& archive,
               const CZipEntry& entry,
               std::size_t maxLength,
               CPlannedEntry& planned,
               std::string& error)
{
    std::string why;
    if (!PlanName(entry, maxLength, planned, error))
        return false;
    return (CheckKind(entry, why) &&
            archive.Locate(entry, planned.data, why)) ||
           Refuse(error, entry.name, why);
}

bool CheckNames(const CZipFile& archive,
                std::size_t maxLength,
                std::string& error)
{
    CPlannedEntry planned;
    CZipWalk walk(archive);
    while (const CZipEntry* const entry = walk.Next(error))
        if (!PlanName(*entry, maxLength, planned, error))
            return false;
    return walk.IsWhole();
}

bool CheckArchive(const CZipFile& archive,
                  std::size_t maxLength,
                  std::string& error)
{
    CConflicts conflicts(archive, maxLength);
    return conflicts.CheckEntries(error) && conflicts.CheckPaths(error) &&
           conflicts.CheckOverlaps(error);
}

} // namespace KzaCore
