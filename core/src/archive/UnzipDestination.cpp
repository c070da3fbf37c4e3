// SPDX-License-Identifier: Apache-2.0

#include "archive/UnzipDestination.h"

#include "base/Error.h"
#include "base/Hash.h"
#include "base/ProcessAlive.h"

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

// Each level holds a descriptor while something below it is written.
constexpr std::size_t kMaxLevels = 100;

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

// The path without links, empty with errno set when there is none.
std::string RealPath(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> real(
        realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : std::string();
}

// True for the temporary file of a process that is no more, or of this one.
bool IsLeftover(const char* name)
{
    if (std::strncmp(name, kPrefix, kPrefixLength) != 0)
        return false;
    const long owner = std::strtol(name + kPrefixLength, nullptr, 10);
    return owner > 0 &&
           (owner == getpid() || !IsProcessAlive(static_cast<pid_t>(owner)));
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
    m_path = RealPath(path);
    if (m_path.empty() && errno == ENOENT && MakeDirectories(path))
        m_path = RealPath(path);
    if (!m_path.empty())
        m_root = CDescriptor(open(m_path.c_str(), kOpenDirectory));
    if (!m_root.IsOpen())
        return FailBySystem(error,
                            "the destination '" + path + "' cannot be opened");
    NoteLeftovers();
    return true;
}

int CUnzipDestination::Top() const
{
    return m_levels.empty() ? m_root.Get() : m_levels.back().directory.Get();
}

std::string CUnzipDestination::TopPath() const
{
    std::string path = m_path;
    for (const SLevel& level : m_levels)
        path += "/" + level.name;
    return path;
}

bool CUnzipDestination::Check(std::string_view directory, std::string& error)
{
    return Walk(directory, false, error) != EStep::Failed;
}

int CUnzipDestination::Enter(std::string_view directory, std::string& error)
{
    return Walk(directory, true, error) == EStep::Done ? Top() : -1;
}

// False for a directory that was searched lately. An archive whose entries
// come in no order must not have each directory searched once for every entry.
bool CUnzipDestination::IsNew(std::string_view directory)
{
    constexpr std::size_t kSlots = 4096;
    m_searched.resize(kSlots);
    const std::uint64_t hash = HashBytes(directory);
    std::uint64_t& slot = m_searched[hash % kSlots];
    return std::exchange(slot, hash) != hash;
}

// Makes the levels those of the directory, keeping what they have in common
// with where the last walk ended.
CUnzipDestination::EStep CUnzipDestination::Walk(std::string_view directory,
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
        if (m_levels.size() == kMaxLevels)
        {
            error = "too many directories deep";
            return EStep::Failed;
        }
        const std::string_view name = FirstComponent(directory);
        CDescriptor next;
        const EStep step = Step(name, make, next, error);
        if (step != EStep::Done)
            return step;
        m_levels.push_back({std::string(name), std::move(next)});
        const auto entered =
            static_cast<std::size_t>(name.data() + name.size() - whole.data());
        if (!make && m_isSearching && IsNew(whole.substr(0, entered)))
            NoteLeftovers();
        DropFirstComponent(directory);
    }
    return EStep::Done;
}

CUnzipDestination::EStep CUnzipDestination::Step(std::string_view name,
                                                 bool make,
                                                 CDescriptor& next,
                                                 std::string& error)
{
    const std::string component(name);
    next = CDescriptor(openat(Top(), component.c_str(), kOpenDirectory));
    if (!next.IsOpen() && errno == ENOENT)
    {
        if (!make)
            return EStep::Missing;
        if (mkdirat(Top(), component.c_str(), 0700) == 0 || errno == EEXIST)
            next =
                CDescriptor(openat(Top(), component.c_str(), kOpenDirectory));
    }
    if (next.IsOpen())
        return EStep::Done;

    const int code = errno;
    if (IsSymbolicLink(Top(), component))
        return StepThroughLink(name, next, error);
    // What is no directory has nothing in it either.
    if (!make && code == ENOTDIR)
        return EStep::Missing;
    errno = code;
    FailBySystem(error, "the directory '" + component + "' cannot be entered");
    return EStep::Failed;
}

// Walks to where a link leads, again without following any other on the way:
// a path that had none a moment ago has none unless somebody plays tricks.
CUnzipDestination::EStep CUnzipDestination::StepThroughLink(
    std::string_view name, CDescriptor& next, std::string& error)
{
    const std::string link = "the symbolic link '" + std::string(name) + "'";
    const std::string target = RealPath(TopPath() + "/" + std::string(name));
    if (target.empty())
    {
        FailBySystem(error, link + " cannot be followed");
        return EStep::Failed;
    }
    const std::string inside = m_path == "/" ? m_path : m_path + "/";
    std::string_view rest;
    if (target.compare(0, inside.size(), inside) == 0)
        rest = std::string_view(target).substr(inside.size());
    else if (target != m_path)
    {
        error = link + " leads outside of the destination";
        return EStep::Failed;
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
        return EStep::Done;
    FailBySystem(error, link + " cannot be followed");
    return EStep::Failed;
}

void CUnzipDestination::NoteLeftovers()
{
    CDescriptor again(openat(Top(), ".", kOpenDirectory));
    DIR* const stream = again.IsOpen() ? fdopendir(again.Get()) : nullptr;
    if (stream == nullptr)
        return;
    again.Disown(); // the stream closes it
    while (const dirent* const entry = readdir(stream))
        if (IsLeftover(entry->d_name))
            m_leftovers.push_back(TopPath() + "/" + entry->d_name);
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
