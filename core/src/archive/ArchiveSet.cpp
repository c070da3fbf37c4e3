// SPDX-License-Identifier: Apache-2.0

#include "archive/ArchiveSet.h"

#include "base/Bytes.h"
#include "base/SplitList.h"

#include <wx/log.h>

#include <algorithm>

namespace KzaCore
{

namespace
{

constexpr std::chrono::seconds kRefreshInterval{1};

} // namespace

void CArchiveSet::SetPaths(const std::string& list)
{
    if (list == m_list)
        return;
    m_list = list;
    auto old = std::move(m_members);
    m_members.clear();
    for (const std::string_view path : SplitList<std::string_view>(list, ";"))
    {
        const auto isIt = [&path](const SMember& member)
        { return member.path == path; };
        if (std::any_of(m_members.begin(), m_members.end(), isIt))
            continue;
        const auto kept = std::find_if(old.begin(), old.end(), isIt);
        SMember member;
        if (kept != old.end())
            member = std::move(*kept);
        member.path = path;
        m_members.push_back(std::move(member));
    }
}

CArchiveSet::EResult CArchiveSet::Read(const std::vector<std::string>& names,
                                       std::string& bytes,
                                       std::string& place,
                                       std::string& error)
{
    const SZipEntry* entry = nullptr;
    const std::size_t found = FindFresh(names, entry);
    if (found == kNone)
        return EResult::Missing;
    const SMember& member = m_members[found];
    place = member.path + "/" + std::string(entry->name);
    return member.archive->Read(*entry, bytes, error) ? EResult::Found
                                                      : EResult::Broken;
}

std::string CArchiveSet::DescribeMiss(
    const std::vector<std::string>& names) const
{
    std::string text;
    for (const SMember& member : m_members)
    {
        if (!member.problem.empty())
        {
            text += "\n\tno usable archive '" + member.path +
                    "': " + member.problem;
            continue;
        }
        for (const std::string& name : names)
            text += "\n\tno file '" + member.path + "/" + name + "'";
    }
    return text;
}

void CArchiveSet::Open(std::size_t at)
{
    SMember& member = m_members[at];
    member.problem.clear();
    member.archive = std::make_unique<CZipArchive>();
    if (member.archive->Open(member.path, member.problem))
    {
        member.warned = false;
        return;
    }
    if (!member.warned)
        wxLogWarning("Archive '%s' is skipped: %s", TextOfBytes(member.path),
                     TextOfBytes(member.problem));
    member.warned = true;
}

// True when the archive is another one than before.
bool CArchiveSet::Refresh(std::size_t at)
{
    const SMember& member = m_members[at];
    const bool wasUsable = member.IsUsable();
    if (wasUsable && !member.archive->IsStale())
        return false;
    Open(at);
    return wasUsable || member.IsUsable();
}

bool CArchiveSet::RefreshAll()
{
    bool changed = false;
    for (std::size_t at = 0; at < m_members.size(); ++at)
        if (m_members[at].archive != nullptr) // else opened when it is needed
            changed = Refresh(at) || changed;
    m_lastRefresh = std::chrono::steady_clock::now();
    return changed;
}

// The first archive that holds one of the names, kNone without one.
std::size_t CArchiveSet::Find(const std::vector<std::string>& names,
                              const SZipEntry*& entry)
{
    for (std::size_t at = 0; at < m_members.size(); ++at)
    {
        const SMember& member = m_members[at];
        if (member.archive == nullptr)
            Open(at);
        if (!member.IsUsable())
            continue;
        for (const std::string& name : names)
        {
            entry = member.archive->Find(name);
            if (entry != nullptr)
                return at;
        }
    }
    return kNone;
}

std::size_t CArchiveSet::FindFresh(const std::vector<std::string>& names,
                                   const SZipEntry*& entry)
{
    if (std::chrono::steady_clock::now() - m_lastRefresh > kRefreshInterval)
        RefreshAll();
    const std::size_t found = Find(names, entry);
    const bool changed = found == kNone ? RefreshAll() : Refresh(found);
    return changed ? Find(names, entry) : found;
}

} // namespace KzaCore
