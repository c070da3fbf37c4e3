// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PidFile.h"

#include "base/Descriptor.h"
#include "base/NewDescriptor.h"
#include "base/SameFile.h"
#include "base/WholeTransfer.h"

#include <wx/log.h>
#include <wx/string.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr int kClaimPollMs = 10;
constexpr int kClaimPolls = 1000;

// A longer file cannot be a pid file of the agent; it counts as absent even
// when it begins with a number.
constexpr std::size_t kLongestContent = 4096;

std::string NativePath(const wxString& path)
{
    return std::string(path.fn_str());
}

// The characters of isspace() in the C locale, independent of the process's
// locale.
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// The number of a content that is one positive number with nothing but white
// space around it, else 0.
int ParsePid(std::string_view content)
{
    const std::size_t first = content.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos)
        return 0;
    const std::size_t last = content.find_last_not_of(kWhiteSpace);
    content = content.substr(first, last - first + 1);

    int pid = 0;
    const char* const end = content.data() + content.size();
    const auto [stop, error] = std::from_chars(content.data(), end, pid);
    const bool isNumber = error == std::errc() && stop == end;
    return isNumber && pid > 0 ? pid : 0;
}

bool WriteContent(int fd, const std::string& content)
{
    return fchmod(fd, 0644) == 0 &&
           WriteWhole(fd, content.data(), content.size()) == content.size();
}

// True when the path leads to the open file and is no link.
bool IsNameOf(const std::string& path, int fd)
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           IsSameFile(opened, named);
}

} // namespace

int ReadPidFile(const wxString& path)
{
    // O_NONBLOCK: a pipe in the file's place must not hold the start.
    const CDescriptor file(
        open(NativePath(path).c_str(),
             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info
    {
    };
    if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode))
        return 0;
    std::array<char, kLongestContent> content{};
    if (info.st_size > static_cast<off_t>(content.size()))
        return 0;
    const std::size_t size =
        ReadWhole(file.Get(), content.data(), content.size());
    return ParsePid({content.data(), size});
}

bool WritePidFile(const wxString& path)
{
    const std::string target = NativePath(path);
    std::string temporary = target + ".XXXXXX";
    CDescriptor file(OpenTemporary(temporary.data()));
    if (!file.IsOpen())
    {
        wxLogSysError("Unable to make a file beside '%s'", path);
        return false;
    }
    if (WriteContent(file.Get(), std::to_string(getpid()) + "\n") &&
        file.Close() && rename(temporary.c_str(), target.c_str()) == 0)
        return true;
    wxLogSysError("Unable to write '%s'", path);
    unlink(temporary.c_str());
    return false;
}

CPidFileClaim::CPidFileClaim(const wxString& path)
    : m_lockFile(NativePath(path) + kClaimSuffix)
{
    const timespec pause{0, kClaimPollMs * 1000000L};
    for (int i = 0; i < kClaimPolls; ++i)
    {
        const EAttempt attempt = TryLock();
        m_taken = attempt == EAttempt::Taken;
        if (attempt == EAttempt::Done)
            return;
        nanosleep(&pause, nullptr);
    }
}

CPidFileClaim::~CPidFileClaim()
{
    Release();
}

CPidFileClaim::EAttempt CPidFileClaim::TryLock()
{
    m_fd = open(m_lockFile.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                0600);
    if (m_fd == -1)
        return EAttempt::Done;
    if (!LockOpenFile(m_fd, F_WRLCK))
        return errno == EAGAIN || errno == EACCES ? Abandon(EAttempt::Taken)
                                                  : GoOnWithoutLock();
    // The process that had the lock removes the file when it gives the lock up.
    // A lock on a file that was removed excludes no other process.
    return IsNameOf(m_lockFile, m_fd) ? EAttempt::Done
                                      : Abandon(EAttempt::Replaced);
}

CPidFileClaim::EAttempt CPidFileClaim::Abandon(EAttempt attempt)
{
    close(m_fd);
    m_fd = -1;
    return attempt;
}

// Two starts at the same instant are rare. An agent on a host whose file system
// or kernel cannot lock must start all the same.
CPidFileClaim::EAttempt CPidFileClaim::GoOnWithoutLock()
{
    wxLogSysError("Unable to lock '%s'", wxString(m_lockFile));
    unlink(m_lockFile.c_str());
    return Abandon(EAttempt::Done);
}

void CPidFileClaim::Release()
{
    if (m_fd == -1)
        return;
    unlink(m_lockFile.c_str());
    LockOpenFile(m_fd, F_UNLCK);
    close(m_fd);
    m_fd = -1;
}

} // namespace KzaCore
