// SPDX-License-Identifier: Apache-2.0
//
// A member of the set is untried, usable or broken. The first look-up that
// reaches an untried member opens it (Open()), which makes it usable or broken.
// From then on Refresh() opens a member again when its file has changed, and
// whenever the member is broken; so a member goes from usable to broken and
// back, and never becomes untried again. A change of the list keeps the members
// whose paths stay, in their present states.
//
// Comparing an archive with its file takes a system call, and a look-up should
// not make one for each archive that does not have the name. A look-up
// therefore takes these steps (FindFresh()):
//
//   1. When the last comparison of all tried members is more than a second ago,
//      all of them are compared. This finds a change that step 3 misses: the
//      name is new in an archive that comes before the one that has it.
//   2. The members are asked for the name in order; the first member that has
//      it is the answer.
//   3. The member that has the name is compared with its file. When no member
//      has it, all are compared: a module that was just installed is found at
//      once.
//   4. When step 3 opened an archive again, step 2 is repeated, and its answer
//      stands.

#include "archive/ArchiveSet.h"

#include "base/Bytes.h"
#include "base/Error.h"
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
        const auto isIt = [&path](const CMember& member)
        { return member.path == path; };
        if (std::any_of(m_members.begin(), m_members.end(), isIt))
            continue;
        const auto kept = std::find_if(old.begin(), old.end(), isIt);
        CMember member;
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
    const CZipEntry* entry = nullptr;
    const std::size_t found = FindFresh(names, entry);
    if (found == kNone)
        return EResult::Missing;
    const CMember& member = m_members[found];
    place = member.path + "/" + std::string(entry->name);
    return member.archive->Read(*entry, bytes, error) ? EResult::Found
                                                      : EResult::Broken;
}

std::string CArchiveSet::DescribeMiss(
    const std::vector<std::string>& names) const
{
    std::string text;
    for (const CMember& member : m_members)
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

bool CArchiveSet::OpenFile(CMember& member) const
{
    if (member.path.front() != '/')
        return Fail(member.problem, "its path is not absolute");
    COpenedFile file;
    TChangeable changeable;
    if (!OpenAndJudge(member.path, file, changeable))
        return FailBySystem(member.problem, "cannot be opened");
    if (!Tolerate(changeable, m_rule))
        return Fail(member.problem, changeable.front());
    return member.archive->Open(std::move(file), member.problem);
}

void CArchiveSet::Open(std::size_t at)
{
    CMember& member = m_members[at];
    member.problem.clear();
    member.archive = std::make_unique<CZipArchive>();
    if (OpenFile(member))
    {
        member.warned = false;
        return;
    }
    if (!member.warned)
        wxLogWarning("Archive '%s' is skipped: %s", TextOfBytes(member.path),
                     TextOfBytes(member.problem));
    member.warned = true;
}

// True when the content of the member may have changed.
bool CArchiveSet::Refresh(std::size_t at)
{
    const CMember& member = m_members[at];
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
        if (m_members[at].IsTried())
            changed = Refresh(at) || changed;
    m_lastRefresh = std::chrono::steady_clock::now();
    return changed;
}

// The first archive that holds one of the names, kNone without one.
std::size_t CArchiveSet::Find(const std::vector<std::string>& names,
                              const CZipEntry*& entry)
{
    for (std::size_t at = 0; at < m_members.size(); ++at)
    {
        const CMember& member = m_members[at];
        if (!member.IsTried())
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
                                   const CZipEntry*& entry)
{
    if (std::chrono::steady_clock::now() - m_lastRefresh > kRefreshInterval)
        RefreshAll();
    const std::size_t found = Find(names, entry);
    const bool changed = found == kNone ? RefreshAll() : Refresh(found);
    return changed ? Find(names, entry) : found;
}

} // namespace KzaCore
