// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Owner.h"

#include "base/Bytes.h"
#include "base/Descriptor.h"
#include "base/Mutex.h"
#include "base/RealPath.h"
#include "kza_core/OpenedFile.h"

#include <wx/log.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <set>
#include <utility>

namespace KzaCore
{

namespace
{

// Adds what is said of a file or directory when others can change it, once.
void Judge(const std::string& path,
           const struct stat& status,
           TChangeable& changeable)
{
    if (!CanOthersChange(status))
        return;
    std::string text = ChangeableText(path, status);
    if (std::find(changeable.begin(), changeable.end(), text) ==
        changeable.end())
        changeable.push_back(std::move(text));
}

// A link that leads to more of them than the system would follow.
constexpr int kMaxLinks = 40;

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// A path cut into what holds its last name, and that name.
struct CPlace
{
    explicit CPlace(std::string whole);

    std::string path; // without slashes at its end
    std::string above;
    std::string name;
};

CPlace::CPlace(std::string whole) : path(std::move(whole))
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
    {
        above = ".";
        name = path;
        return;
    }
    above = slash == 0 ? "/" : path.substr(0, slash);
    name = path.size() == 1 ? "." : path.substr(slash + 1);
}

// The last name of a path in the directory that holds it, which stays open, so
// that the name is looked up in the directory that was judged.
class CHolder
{
public:
    // Once or more: each call leaves the place before.
    bool Open(const std::string& path, TChangeable& changeable);

    bool Stat(struct stat& status) const
    {
        return fstatat(At(), Name(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    }

    // The path that a link at this place leads to, its directory without
    // links.
    bool ReadLink(std::string& target) const;

    // What calls at this place begin with. A directory that the process may
    // only pass through cannot be opened; the path stands in.
    [[nodiscard]] int At() const
    {
        return m_directory.IsOpen() ? m_directory.Get() : AT_FDCWD;
    }
    [[nodiscard]] const char* Name() const
    {
        return m_directory.IsOpen() ? m_place.name.c_str()
                                    : m_place.path.c_str();
    }
    [[nodiscard]] const std::string& Path() const { return m_place.path; }

private:
    CPlace m_place{"/"};
    CDescriptor m_directory;
};

bool CHolder::Open(const std::string& path, TChangeable& changeable)
{
    m_place = CPlace(path);
    const char* const above = m_place.above.c_str();
    m_directory = CDescriptor(open(above, kOpenDirectory));
    struct stat status = {};
    const bool isThere = m_directory.IsOpen()
                             ? fstat(m_directory.Get(), &status) == 0
                             : errno == EACCES && stat(above, &status) == 0;
    if (isThere)
        Judge(m_place.above, status, changeable);
    return isThere;
}

bool CHolder::ReadLink(std::string& target) const
{
    char buffer[PATH_MAX];
    const ssize_t size = readlinkat(At(), Name(), buffer, sizeof buffer);
    if (size <= 0 || static_cast<std::size_t>(size) == sizeof buffer)
        return false;
    std::string path(buffer, static_cast<std::size_t>(size));
    if (path.front() != '/')
        path = m_place.above + "/" + path;
    const CPlace place(std::move(path));
    const bool isName = place.name != "." && place.name != "..";
    target = RealPath(isName ? place.above : place.path);
    if (target.empty())
        return false;
    if (isName)
        target += (target == "/" ? "" : "/") + place.name;
    return true;
}

// Opens the place that a path leads to.
bool Find(const std::string& path,
          CHolder& holder,
          struct stat& status,
          TChangeable& changeable)
{
    std::string next = path;
    for (int i = 0; i < kMaxLinks; ++i)
    {
        if (!holder.Open(next, changeable) || !holder.Stat(status))
            return false;
        if (!S_ISLNK(status.st_mode))
            return true;
        if (!holder.ReadLink(next))
            return false;
    }
    errno = ELOOP;
    return false;
}

// What was said.
struct CTold
{
    CMutex mutex;
    std::set<std::pair<EOwnerRule, std::string>> texts KZA_GUARDED_BY(mutex);
};

// Never destroyed: a thread may log while the process ends.
CTold& Told()
{
    static CTold* const told = new CTold;
    return *told;
}

bool IsNew(EOwnerRule rule, const std::string& text)
{
    CTold& told = Told();
    const CLock lock(told.mutex);
    return told.texts.emplace(rule, text).second;
}

} // namespace

bool CanOthersChange(const struct stat& status)
{
    const bool isOurs = status.st_uid == 0 || status.st_uid == geteuid();
    return !isOurs || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

std::string ChangeableText(const std::string& path, const struct stat& status)
{
    char mode[8];
    snprintf(mode, sizeof mode, "%04o",
             static_cast<unsigned>(status.st_mode & 07777));
    return "'" + path + "' can be changed by others (owner " +
           std::to_string(status.st_uid) + ", mode " + mode + ")";
}

bool OpenAndJudge(const std::string& path,
                  COpenedFile& file,
                  TChangeable& changeable)
{
    CHolder holder;
    struct stat status = {};
    if (!Find(path, holder, status, changeable) ||
        !file.OpenAt(holder.At(), holder.Name(), path))
        return false;
    Judge(holder.Path(), file.Status(), changeable);
    return true;
}

void JudgePath(const std::string& path, TChangeable& changeable)
{
    CHolder holder;
    struct stat status = {};
    if (Find(path, holder, status, changeable))
        Judge(holder.Path(), status, changeable);
}

void JudgeDirectory(const std::string& path,
                    const std::vector<std::string>& names,
                    TChangeable& changeable)
{
    CHolder holder;
    struct stat status = {};
    if (!Find(path, holder, status, changeable))
        return;
    Judge(holder.Path(), status, changeable);
    const CDescriptor directory(
        openat(holder.At(), holder.Name(), kOpenDirectory));
    for (const std::string& name : names)
    {
        const std::string below = path + "/" + name;
        const bool isSeen = fstatat(directory.Get(), name.c_str(), &status,
                                    AT_SYMLINK_NOFOLLOW) == 0;
        if (isSeen && !S_ISLNK(status.st_mode))
            Judge(below, status, changeable);
        else if (isSeen || errno == EBADF) // which may only be passed through
            JudgePath(below, changeable);
    }
}

bool Tolerate(const TChangeable& changeable, EOwnerRule rule)
{
    if (rule == EOwnerRule::Ignore)
        return true;
    const bool isRefused = rule == EOwnerRule::Refuse;
    for (const std::string& text : changeable)
    {
        if (!IsNew(rule, text))
            continue;
        if (isRefused)
            wxLogError("%s", TextOfBytes(text));
        else
            wxLogWarning("%s", TextOfBytes(text));
    }
    return changeable.empty() || !isRefused;
}

} // namespace KzaCore
