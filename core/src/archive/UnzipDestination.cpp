// SPDX-License-Identifier: Apache-2.0
//
// m_levels holds one open directory for each component of the last path that
// was walked, so a walk to a directory nearby opens few directories. A walk
// (Walk()) goes like this:
//
//   1. Levels that the new path shares with the last one stay; the others are
//      closed.
//   2. Each further component is opened from the level above it, without
//      following a link (Step()). A missing one ends a look, and is made on the
//      way to a write.
//   3. A component that is a link is resolved by the system, and its target is
//      walked again from the destination without following links
//      (StepThroughLink()). A link whose target is outside is refused.
//
// While the archive is checked, each directory that a walk enters is searched
// once for temporary files of processes that have ended (NoteLeftovers()).
// RemoveLeftovers() removes them when the archive is found good, and ends the
// search.

#include "archive/UnzipDestination.h"

#include "archive/UnzipPlan.h"
#include "base/Error.h"
#include "base/Hash.h"
#include "base/ProcessAlive.h"
#include "base/RealPath.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace KzaCore
{

namespace
{

constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

constexpr char kPrefix[] = ".kza_unzip.";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;

std::string_view FirstComponent(std::string_view path)
{
    return path.substr(0, std::min(path.find('/'), path.size()));
}

void DropFirstComponent(std::string_view& path)
{
    path.remove_prefix(std::min(FirstComponent(path).size() + 1, path.size()));
}

bool IsSymbolicLink(int directory, const std::string& name)
{
    struct stat status = {};
    return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) ==
               0 &&
           S_ISLNK(status.st_mode);
}

// True for the name of a temporary file of a process that has ended, or of this
// process.
bool IsLeftover(const char* name)
{
    if (std::strncmp(name, kPrefix, kPrefixLength) != 0)
        return false;
    const long owner = std::strtol(name + kPrefixLength, nullptr, 10);
    return owner > 0 &&
           (owner == getpid() || !IsProcessAlive(static_cast<pid_t>(owner)));
}

// The beginning of a path, with `size` bytes: a directory above it. "/" or "."
// where no component is left.
std::string Beginning(const std::string& path, std::size_t size)
{
    if (size > 0 || path.empty())
        return path.substr(0, size);
    return path[0] == '/' ? "/" : ".";
}

bool MakeDirectories(const std::string& path)
{
    for (std::size_t i = 1; i <= path.size(); ++i)
    {
        if (i < path.size() && path[i] != '/')
            continue;
        if (mkdir(path.substr(0, i).c_str(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

} // namespace

std::string TemporaryName()
{
    static std::atomic<unsigned> counter{0};
    return kPrefix + std::to_string(getpid()) + "." + std::to_string(++counter);
}

bool CUnzipDestination::Open(const std::string& path, std::string& error)
{
    m_given = path;
    std::size_t there = path.size();
    while ((m_path = RealPath(Beginning(path, there))).empty() &&
           errno == ENOENT && there > 0)
        there = ParentOf(std::string_view(path).substr(0, there)).size();
    if (!OpenRoot(error))
        return false;
    m_isMissing = there < path.size();
    if (m_isMissing)
        m_path += "/" + path.substr(there);
    else
        NoteLeftovers();
    return true;
}

bool CUnzipDestination::OpenRoot(std::string& error)
{
    if (!m_path.empty())
        m_root = CDescriptor(open(m_path.c_str(), kOpenDirectory));
    return m_root.IsOpen() ||
           FailBySystem(error,
                        "the destination '" + m_given + "' cannot be opened");
}

bool CUnzipDestination::Make(std::string& error)
{
    if (!m_isMissing)
        return true;
    m_isMissing = false;
    m_root = CDescriptor();
    m_path = MakeDirectories(m_given) ? RealPath(m_given) : std::string();
    return OpenRoot(error);
}

int CUnzipDestination::Nearest() const
{
    return m_levels.empty() ? m_root.Get() : m_levels.back().directory.Get();
}

std::string CUnzipDestination::NearestPath() const
{
    std::string path = m_path;
    for (const CLevel& level : m_levels)
        path += "/" + level.name;
    return path;
}

CUnzipDestination::ELook CUnzipDestination::Look(std::string_view directory,
                                                 std::string& error)
{
    return m_isMissing ? ELook::Missing : Walk(directory, false, error);
}

int CUnzipDestination::Enter(std::string_view directory, std::string& error)
{
    return Walk(directory, true, error) == ELook::There ? Nearest() : -1;
}

// False for a directory that was searched lately. Where the entries of an
// archive come in no order, the same directory is entered many times and must
// not be searched each time.
bool CUnzipDestination::IsNew(std::string_view directory)
{
    constexpr std::size_t kSlots = 4096;
    m_searched.resize(kSlots);
    const std::uint64_t hash = HashBytes(directory);
    std::uint64_t& slot = m_searched[hash % kSlots];
    return std::exchange(slot, hash) != hash;
}

// Makes m_levels lead to the directory; see the head of this file.
CUnzipDestination::ELook CUnzipDestination::Walk(std::string_view directory,
                                                 bool make,
                                                 std::string& error)
{
    const std::string_view whole = directory;
    std::size_t kept = 0;
    while (kept < m_levels.size() && !directory.empty() &&
           m_levels[kept].name == FirstComponent(directory))
    {
        DropFirstComponent(directory);
        ++kept;
    }
    m_levels.resize(kept);
    while (!directory.empty())
    {
        const std::string_view name = FirstComponent(directory);
        CDescriptor next;
        const ELook step = Step(name, make, next, error);
        if (step != ELook::There)
            return step;
        m_levels.push_back({std::string(name), std::move(next)});
        const auto entered =
            static_cast<std::size_t>(name.data() + name.size() - whole.data());
        if (!make && m_isSearching && IsNew(whole.substr(0, entered)))
            NoteLeftovers();
        DropFirstComponent(directory);
    }
    return ELook::There;
}

CUnzipDestination::ELook CUnzipDestination::Step(std::string_view name,
                                                 bool make,
                                                 CDescriptor& next,
                                                 std::string& error)
{
    const std::string component(name);
    next = CDescriptor(openat(Nearest(), component.c_str(), kOpenDirectory));
    if (!next.IsOpen() && errno == ENOENT)
    {
        if (!make)
            return ELook::Missing;
        if (mkdirat(Nearest(), component.c_str(), 0700) == 0 || errno == EEXIST)
            next = CDescriptor(
                openat(Nearest(), component.c_str(), kOpenDirectory));
    }
    if (next.IsOpen())
        return ELook::There;

    const int code = errno;
    if (IsSymbolicLink(Nearest(), component))
        return StepThroughLink(name, next, error);
    // A directory below something that is no directory cannot exist.
    if (!make && code == ENOTDIR)
        return ELook::Missing;
    errno = code;
    FailBySystem(error, "the directory '" + component + "' cannot be entered");
    return ELook::Refused;
}

// Opens the target of a link without following another link on the way: the
// path that the system resolved contains none, unless it was changed since.
CUnzipDestination::ELook CUnzipDestination::StepThroughLink(
    std::string_view name, CDescriptor& next, std::string& error)
{
    const std::string link = "the symbolic link '" + std::string(name) + "'";
    const std::string target =
        RealPath(NearestPath() + "/" + std::string(name));
    if (target.empty())
    {
        FailBySystem(error, link + " cannot be followed");
        return ELook::Refused;
    }
    const std::string inside = m_path == "/" ? m_path : m_path + "/";
    std::string_view rest;
    if (target.compare(0, inside.size(), inside) == 0)
        rest = std::string_view(target).substr(inside.size());
    else if (target != m_path)
    {
        error = link + " leads outside of the destination";
        return ELook::Refused;
    }

    next = CDescriptor(openat(m_root.Get(), ".", kOpenDirectory));
    while (next.IsOpen() && !rest.empty())
    {
        const std::string component(FirstComponent(rest));
        next =
            CDescriptor(openat(next.Get(), component.c_str(), kOpenDirectory));
        DropFirstComponent(rest);
    }
    if (next.IsOpen())
        return ELook::There;
    FailBySystem(error, link + " cannot be followed");
    return ELook::Refused;
}

void CUnzipDestination::NoteLeftovers()
{
    CDescriptor again(openat(Nearest(), ".", kOpenDirectory));
    DIR* const stream = again.IsOpen() ? fdopendir(again.Get()) : nullptr;
    if (stream == nullptr)
        return;
    again.Disown(); // the stream closes it
    while (const dirent* const entry = readdir(stream))
        if (IsLeftover(entry->d_name))
            m_leftovers.push_back(NearestPath() + "/" + entry->d_name);
    closedir(stream);
}

void CUnzipDestination::RemoveLeftovers()
{
    for (const std::string& leftover : m_leftovers)
        unlink(leftover.c_str());
    m_leftovers = {};
    m_searched = {};
    m_isSearching = false;
}

} // namespace KzaCore
