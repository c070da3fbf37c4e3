// SPDX-License-Identifier: Apache-2.0

#include "UnzipPlan.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <numeric>

#ifndef NAME_MAX
#define NAME_MAX 255
#endif

namespace KzaCore
{

namespace
{

constexpr std::size_t kMaxShown = 200;

bool Fail(std::string& error, const char* reason)
{
    error = reason;
    return false;
}

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
bool CheckKind(const SZipEntry& entry, std::string& error)
{
    const mode_t mode = entry.UnixMode();
    if (S_ISLNK(mode))
        return Fail(error, "it is a symbolic link");
    const bool isKnown = (mode & S_IFMT) == 0 || S_ISREG(mode) || S_ISDIR(mode);
    if (!isKnown)
        return Fail(error, "it is a device or another special file");
    if (entry.IsDirectory() ? S_ISREG(mode) : S_ISDIR(mode))
        return Fail(error, "its name and its mode disagree on what it is");
    if (entry.IsDirectory() && entry.size != 0)
        return Fail(error, "it is a directory with contents");
    return true;
}

// Orders paths so that a directory is followed by all that is in it: the
// separator comes before every other byte.
bool ComesBefore(std::string_view a, std::string_view b)
{
    const auto rank = [](char c)
    { return c == '/' ? 0 : static_cast<unsigned char>(c) + 1; };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [rank](char x, char y)
                                        { return rank(x) < rank(y); });
}

bool IsInside(std::string_view path, std::string_view directory)
{
    return path.size() > directory.size() && path[directory.size()] == '/' &&
           path.compare(0, directory.size(), directory) == 0;
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
    if (!name.empty() && name.back() == '/')
        name.remove_suffix(1);
    path = name;
    while (!name.empty())
    {
        const std::size_t end = std::min(name.find('/'), name.size());
        if (!CheckComponent(name.substr(0, end), error))
            return false;
        if (end + 1 == name.size()) // a second slash at the end
            return CheckComponent({}, error);
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    return true;
}

std::string ShowName(std::string_view name)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string shown = "'";
    for (const char c : name.substr(0, kMaxShown))
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F)
            shown += c;
        else
            shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return shown + (name.size() > kMaxShown ? "...'" : "'");
}

bool CUnzipPlan::Make(const CZipArchive& archive,
                      std::size_t maxLength,
                      std::string& error)
{
    m_archive = &archive;
    m_entries.reserve(archive.Entries().size());
    for (const SZipEntry& entry : archive.Entries())
    {
        if (!Add(entry, maxLength, error))
        {
            error = "entry " + ShowName(entry.name) + ": " + error;
            return false;
        }
    }
    return CheckPaths(error) && CheckOverlaps(error);
}

bool CUnzipPlan::Add(const SZipEntry& entry,
                     std::size_t maxLength,
                     std::string& error)
{
    std::string_view path;
    std::uint64_t data = 0;
    if (!PlanPath(entry.name, path, error) || !CheckKind(entry, error))
        return false;
    if (path.size() > maxLength)
        return Fail(error, "its name is too long");
    if (path.empty() && !entry.IsDirectory())
        return Fail(error, "its name is not a plain path");
    if (!m_archive->Locate(entry, data, error))
        return false;
    m_entries.push_back(
        {static_cast<std::uint32_t>(data - entry.offset),
         static_cast<std::uint16_t>(path.data() - entry.name.data()),
         static_cast<std::uint16_t>(path.size())});
    return true;
}

bool CUnzipPlan::CheckPaths(std::string& error)
{
    m_byPath.resize(m_entries.size());
    std::iota(m_byPath.begin(), m_byPath.end(), 0U);
    const auto before = [this](std::uint32_t a, std::uint32_t b)
    { return ComesBefore(PathOf(a), PathOf(b)); };
    if (!std::is_sorted(m_byPath.begin(), m_byPath.end(), before))
        std::sort(m_byPath.begin(), m_byPath.end(), before);

    for (std::size_t i = 1; i < m_byPath.size(); ++i)
    {
        const std::string_view first = PathOf(m_byPath[i - 1]);
        const std::string_view second = PathOf(m_byPath[i]);
        const bool isTwice = first == second;
        const bool isUnderFile =
            !m_archive->Entries()[m_byPath[i - 1]].IsDirectory() &&
            IsInside(second, first);
        if (isTwice || isUnderFile)
        {
            error = "entry " + ShowName(first);
            error += isTwice ? ": it is there twice"
                             : ": it is a file and a directory";
            return false;
        }
    }
    return true;
}

// Entries that share their bytes make an archive of a few kilobytes unpack to
// petabytes.
bool CUnzipPlan::CheckOverlaps(std::string& error) const
{
    const std::vector<SZipEntry>& entries = m_archive->Entries();
    std::vector<std::uint32_t> order(entries.size());
    std::iota(order.begin(), order.end(), 0U);
    const auto before = [&entries](std::uint32_t a, std::uint32_t b)
    { return entries[a].offset < entries[b].offset; };
    if (!std::is_sorted(order.begin(), order.end(), before))
        std::sort(order.begin(), order.end(), before);
    for (std::size_t i = 1; i < order.size(); ++i)
    {
        const std::uint32_t first = order[i - 1];
        if (DataOf(first) + entries[first].compressedSize >
            entries[order[i]].offset)
        {
            error = "entry " + ShowName(entries[order[i]].name) +
                    ": it shares its bytes with another entry";
            return false;
        }
    }
    return true;
}

} // namespace KzaCore
