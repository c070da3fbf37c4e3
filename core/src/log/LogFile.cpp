// SPDX-License-Identifier: Apache-2.0

#include "log/LogFile.h"

#include "base/Descriptor.h"
#include "base/WholeTransfer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// Other writers fill the file too: so many bytes of our own at most, or a
// second, pass between two looks at its size.
constexpr std::int64_t kLookBytes = 64 * 1024;

int OpenDirectory(const std::string& directory)
{
    return open(directory.c_str(),
                O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// A process started without standard streams would get one of their numbers
// for its log, and whatever is printed would end up there.
int AboveStandardStreams(int file)
{
    if (file < 0 || file > STDERR_FILENO)
        return file;
    const int higher = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(file);
    errno = error;
    return higher;
}

bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

CLogFile::~CLogFile()
{
    Close();
}

void CLogFile::SetPlace(const std::string& directory, const std::string& name)
{
    if (directory == m_directory && name == m_name)
        return;
    Close();
    m_directory = directory;
    m_name = name;
    m_lookedAt = 0;
    m_openError = 0;
}

void CLogFile::SetLimits(std::int64_t maxSize, int keep)
{
    m_maxSize = maxSize;
    m_keep = keep;
    m_lookBytes = maxSize > 0 ? std::min(kLookBytes, maxSize / 8) : kLookBytes;
}

std::string CLogFile::Path() const
{
    return m_directory + "/" + m_name;
}

int CLogFile::Append(std::string_view line, std::time_t now)
{
    if (const int error = Prepare(now))
        return error;
    const auto length = static_cast<std::int64_t>(line.size());
    if (m_maxSize > 0 && m_size > 0 && m_size + length > m_maxSize)
        Rotate(now);
    return Write(line);
}

int CLogFile::Prepare(std::time_t now)
{
    if (now != m_lookedAt || m_unseen >= m_lookBytes)
        LookAround(now);
    return m_file < 0 ? m_openError : 0;
}

void CLogFile::LookAround(std::time_t now)
{
    const bool first = now != m_lookedAt;
    m_lookedAt = now;
    m_unseen = 0;
    if (m_file < 0)
    {
        if (first)
            m_openError = Open();
        return;
    }
    struct stat status = {};
    if (IsStillNamed(status))
        m_size = status.st_size;
    else
        Follow();
}

bool CLogFile::IsStillNamed(struct stat& status) const
{
    struct stat named = {};
    return fstat(m_file, &status) == 0 && lstat(Path().c_str(), &named) == 0 &&
           IsSameFile(status, named);
}

// The name stands for another file, or for none. While that one cannot be
// opened, ours still serves, unless nobody could ever read it.
int CLogFile::Follow()
{
    const int error = Open();
    struct stat status = {};
    if (error == 0 || (fstat(m_file, &status) == 0 && status.st_nlink > 0))
        return error;
    Close();
    m_openError = error;
    return error;
}

int CLogFile::Open()
{
    // Failing is no matter here: opening tells.
    mkdir(m_directory.c_str(), S_IRWXU);
    const CDescriptor directory(OpenDirectory(m_directory));
    return directory.Get() < 0 ? errno : OpenIn(directory.Get());
}

int CLogFile::OpenIn(int directory)
{
    // Not blocking, so that a pipe put in the file's place cannot stop the
    // process; readable, to see how the file ends.
    const int file =
        AboveStandardStreams(openat(directory, m_name.c_str(),
                                    O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC |
                                        O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                                    S_IRUSR | S_IWUSR));
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
    {
        close(file);
        return ENOTSUP;
    }
    return Adopt(file, status);
}

int CLogFile::Adopt(int file, const struct stat& status)
{
    // The descriptor keeps its number while the file behind it changes, so
    // that a signal handler never writes to what the number may stand for
    // next.
    if (m_file < 0)
        m_file = file;
    else
    {
        const CDescriptor extra(file);
        if (dup3(file, m_file, O_CLOEXEC) < 0)
            return errno;
    }
    m_size = status.st_size;
    m_unseen = 0;
    m_torn = WasLeftInMidLine();
    return 0;
}

void CLogFile::Close()
{
    if (m_file >= 0)
        close(m_file);
    m_file = -1;
}

void CLogFile::Rotate(std::time_t now)
{
    if (now == m_rotationFailedAt)
        return;
    // Whoever holds the lock is rotating; look again before the next line.
    if (!Lock(F_WRLCK))
    {
        m_lookedAt = 0;
        return;
    }
    struct stat status = {};
    int error = IsStillNamed(status) ? Shift() : 0;
    if (error == 0)
        error = Follow();
    if (m_file >= 0)
        Lock(F_UNLCK);
    m_rotationFailedAt = error == 0 ? 0 : now;
    if (error == 0 || m_rotationError == 0)
        m_rotationErrorTaken = false;
    m_rotationError = error;
}

bool CLogFile::Lock(short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(m_file, F_SETLK, &lock) == 0;
}

int CLogFile::Shift()
{
    const CDescriptor directory(OpenDirectory(m_directory));
    if (directory.Get() < 0)
        return errno;
    const auto numbered = [this](int number)
    { return m_name + "." + std::to_string(number); };

    // Also what a larger setting kept before.
    int number = std::max(m_keep, 1);
    while (unlinkat(directory.Get(), numbered(number).c_str(), 0) == 0)
        ++number;

    // A gap, left by an operator or an interrupted rotation, is no matter.
    for (number = m_keep - 1; number > 0; --number)
        renameat(directory.Get(), numbered(number).c_str(), directory.Get(),
                 numbered(number + 1).c_str());
    const int result = m_keep == 0
                           ? unlinkat(directory.Get(), m_name.c_str(), 0)
                           : renameat(directory.Get(), m_name.c_str(),
                                      directory.Get(), numbered(1).c_str());
    return result == 0 ? 0 : errno;
}

int CLogFile::TakeRotationError()
{
    if (m_rotationError == 0 || m_rotationErrorTaken)
        return 0;
    m_rotationErrorTaken = true;
    return m_rotationError;
}

int CLogFile::Write(std::string_view line)
{
    struct stat status = {};
    if (m_torn && EndsInMidLine(status) && WriteWhole(m_file, "\n", 1) != 1)
        return errno;
    m_torn = false;

    // One system call, unless the disk fills up: the second one tells why.
    const std::size_t written = WriteWhole(m_file, line.data(), line.size());
    m_size += static_cast<std::int64_t>(written);
    m_unseen += static_cast<std::int64_t>(written);
    m_torn = written > 0 && written < line.size();
    return written == line.size() ? 0 : errno;
}

// By a writer that died or by a full disk. While the system copies a line of
// another writer the file ends in its middle, too. Setting the rights that the
// file has waits for that writer, who then has made it longer.
bool CLogFile::WasLeftInMidLine() const
{
    struct stat before = {};
    struct stat after = {};
    return EndsInMidLine(before) &&
           fchmod(m_file, before.st_mode & 07777) == 0 &&
           EndsInMidLine(after) && after.st_size == before.st_size;
}

bool CLogFile::EndsInMidLine(struct stat& status) const
{
    char last = '\n';
    return fstat(m_file, &status) == 0 && status.st_size > 0 &&
           pread(m_file, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

} // namespace KzaCore
