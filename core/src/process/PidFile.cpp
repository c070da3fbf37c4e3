// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PidFile.h"

#include "base/Descriptor.h"

#include <wx/log.h>
#include <wx/string.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>

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

std::string NativePath(const wxString& path)
{
    return std::string(path.fn_str());
}

// A number from 1 that fits, then a newline, then nothing.
int ParsePid(const char* begin, const char* end)
{
    int pid = 0;
    const std::from_chars_result parsed = std::from_chars(begin, end, pid);
    const bool whole = parsed.ec == std::errc() && end - parsed.ptr == 1 &&
                       *parsed.ptr == '\n';
    return whole && pid > 0 ? pid : 0;
}

// As read(2), whatever signals arrive.
ssize_t ReadFully(int fd, char* data, std::size_t size)
{
    ssize_t count = 0;
    do
        count = read(fd, data, size);
    while (count == -1 && errno == EINTR);
    return count;
}

bool WriteContent(int fd, const std::string& content)
{
    return fchmod(fd, 0644) == 0 && write(fd, content.data(), content.size()) ==
                                        static_cast<ssize_t>(content.size());
}

// Both descriptions of one file?
bool IsSameFile(int fd, const std::string& path)
{
    struct stat open
    {
    };
    struct stat named
    {
    };
    return fstat(fd, &open) == 0 && lstat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// The lock goes with the open file, not with the process, so that a child
// inherits it.
bool SetLock(int fd, short type)
{
    struct flock lock
    {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_SETLK, &lock) == 0;
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
    std::array<char, 32> content{};
    const ssize_t count = ReadFully(file.Get(), content.data(), content.size());
    return count > 0 ? ParsePid(content.data(), content.data() + count) : 0;
}

bool WritePidFile(const wxString& path)
{
    const std::string target = NativePath(path);
    std::string temporary = target + ".XXXXXX";
    CDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
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
    : m_lockFile(NativePath(path) + ".lock")
{
    const timespec pause{0, kClaimPollMs * 1000000L};
    for (int i = 0; i < kClaimPolls; ++i)
    {
        if (TryLock())
            return;
        nanosleep(&pause, nullptr);
    }
    m_taken = true;
}

CPidFileClaim::~CPidFileClaim()
{
    Release();
}

// True when there is nothing more to wait for.
bool CPidFileClaim::TryLock()
{
    m_fd = open(m_lockFile.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                0600);
    if (m_fd == -1)
        return true;
    // The holder removes the file as it leaves: a lock on a file that has no
    // name any more keeps nobody else out.
    if (SetLock(m_fd, F_WRLCK) && IsSameFile(m_fd, m_lockFile))
        return true;
    close(m_fd);
    m_fd = -1;
    return false;
}

void CPidFileClaim::Release()
{
    if (m_fd == -1)
        return;
    unlink(m_lockFile.c_str());
    SetLock(m_fd, F_UNLCK);
    close(m_fd);
    m_fd = -1;
}

} // namespace KzaCore
