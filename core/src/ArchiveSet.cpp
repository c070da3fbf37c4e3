// SPDX-License-Identifier: Apache-2.0

#include "ArchiveSet.h"

#include <wx/log.h>

#include <algorithm>

namespace KzaCore
{

namespace
{

constexpr std::chrono::seconds kRefreshInterval{1};

std::vector<std::string> Split(const std::string& list)
{
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin < list.size();)
    {
        std::size_t end = list.find(';', begin);
        if (end == std::string::npos)
            end = list.size();
        if (end > begin)
            parts.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

} // namespace

void CArchiveSet::SetPaths(const std::string& list)
{
    if (list == m_list)
        return;
    m_list = list;
    auto old = std::move(m_members);
    m_members.clear();
    for (std::string& path : Split(list))
    {
        const auto kept =
            std::find_if(old.begin(), old.end(),
                         [&path](const std::unique_ptr<SMember>& member)
                         { return member && member->path == path; });
        if (kept != old.end())
        {
            m_members.push_back(std::move(*kept));
            continue;
        }
        m_members.push_back(std::make_unique<SMember>());
        m_members.back()->path = std::move(path);
    }
}

CArchiveSet::EResult CArchiveSet::Read(const std::vector<std::string>& names,
                                       std::string& bytes,
                                       std::string& place,
                                       std::string& error)
{
    const SZipEntry* entry = nullptr;
    const SMember* const member = FindFresh(names, entry);
    if (member == nullptr)
        return EResult::Missing;
    place = member->path + "/" + std::string(entry->name);
    return member->archive->Read(*entry, bytes, error) ? EResult::Found
                                                       : EResult::Broken;
}

std::string CArchiveSet::DescribeMiss(
    const std::vector<std::string>& names) const
{
    std::string text;
    for (const auto& member : m_members)
    {
        if (!member->problem.empty())
        {
            text += "\n\tno usable archive '" + member->path +
                    "': " + member->problem;
            continue;
        }
        for (const std::string& name : names)
            text += "\n\tno file '" + member->path + "/" + name + "'";
    }
    return text;
}

void CArchiveSet::Open(SMember& member)
{
    member.problem.clear();
    member.archive = std::make_unique<CZipArchive>();
    if (member.archive->Open(member.path, member.problem))
    {
        member.warned = false;
        return;
    }
    if (!member.warned)
        wxLogWarning("Archive '%s' is skipped: %s",
                     wxString::FromUTF8(member.path.c_str()),
                     wxString::FromUTF8(member.problem.c_str()));
    member.warned = true;
}

// True when the archive is another one than before.
bool CArchiveSet::Refresh(SMember& member)
{
    const bool wasUsable = member.IsUsable();
    if (wasUsable && !member.archive->IsStale())
        return false;
    Open(member);
    return wasUsable || member.IsUsable();
}

bool CArchiveSet::RefreshAll()
{
    bool changed = false;
    for (const auto& member : m_members)
        changed = Refresh(*member) || changed;
    m_lastRefresh = std::chrono::steady_clock::now();
    return changed;
}

CArchiveSet::SMember* CArchiveSet::Find(const std::vector<std::string>& names,
                                        const SZipEntry*& entry)
{
    for (const auto& member : m_members)
    {
        if (member->archive == nullptr)
            Open(*member);
        if (!member->IsUsable())
            continue;
        for (const std::string& name : names)
        {
            entry = member->archive->Find(name);
            if (entry != nullptr)
                return member.get();
        }
    }
    return nullptr;
}

CArchiveSet::SMember* CArchiveSet::FindFresh(
    const std::vector<std::string>& names, const SZipEntry*& entry)
{
    if (std::chrono::steady_clock::now() - m_lastRefresh > kRefreshInterval)
        RefreshAll();
    SMember* const found = Find(names, entry);
    const bool changed = found == nullptr ? RefreshAll() : Refresh(*found);
    return changed ? Find(names, entry) : found;
}

} // namespace KzaCore
