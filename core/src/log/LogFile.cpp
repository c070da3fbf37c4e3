// SPDX-License-Identifier: Apache-2.0
//
// The states of the file and the functions that change them:
//
//   Closed  There is no descriptor. m_openError says why the last attempt to
//           open failed; it is zero before the first attempt.
//     -> Open    EnsureOpen() tries once a second.
//   Open    The descriptor stands for the file that had the name at the last
//           check.
//     -> Open    FollowName() makes the descriptor stand for the file that has
//                the name now: another process has rotated, an operator has
//                moved the file away, or Rotate() has renamed it.
//     -> Closed  FollowName() cannot open the name, and the file in use has
//                lost its last name, so lines written to it could not be read.
//     -> Closed  SetPlace() names another file.
//
// CheckName() compares name and descriptor before the first line of a second,
// and after kCheckBytes of this process's lines, for other processes fill and
// rename the file too.
//
// Rotation, when the next line would make the file too large:
//
//   1. Take the file's lock, without waiting: when another process has it, that
//      process is rotating, and the name is checked again before the next line.
//   2. Compare name and descriptor. Another process may have rotated between
//      the last check and step 1; only step 4 is left to do then.
//   3. Rename the older files, the oldest first, and then the file itself.
//   4. Open the name again, which makes the next file.
//
// When a step fails, the file in use grows on, and rotation is tried again a
// second later.
//
// A file may end in the middle of a line: its writer was killed, or the disk
// was full. m_isTorn notes that, and the next line begins with a line break.

#include "log/LogFile.h"

#include "base/Descriptor.h"
#include "base/NewDescriptor.h"
#include "base/SameFile.h"
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

// The number of bytes that one writer may write beyond the file's limit before
// it notices that others write, too.
constexpr std::int64_t kCheckBytes = 64 * 1024;

int OpenDirectory(const std::string& directory)
{
    return open(directory.c_str(),
                O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// The same file under a descriptor above the standard ones. A process that was
// started without standard streams would else get one of their numbers for its
// log, and text printed by any library would end up in the log.
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
    m_checkedAt = 0;
    m_openError = 0;
}

void CLogFile::SetLimits(std::int64_t maxSize, int oldFiles)
{
    m_maxSize = maxSize;
    m_oldFiles = oldFiles;
    m_checkBytes =
        maxSize > 0 ? std::min(kCheckBytes, maxSize / 8) : kCheckBytes;
}

std::string CLogFile::Path() const
{
    return m_directory + "/" + m_name;
}

int CLogFile::Append(std::string_view line, std::time_t now)
{
    if (const int error = EnsureOpen(now))
        return error;
    const auto length = static_cast<std::int64_t>(line.size());
    if (m_maxSize > 0 && m_size > 0 && m_size + length > m_maxSize)
        Rotate(now);
    return WriteLine(line);
}

int CLogFile::EnsureOpen(std::time_t now)
{
    if (now != m_checkedAt || m_sinceCheck >= m_checkBytes)
        CheckName(now);
    return m_descriptor < 0 ? m_openError : 0;
}

void CLogFile::CheckName(std::time_t now)
{
    const bool isNewSecond = now != m_checkedAt;
    m_checkedAt = now;
    m_sinceCheck = 0;
    if (m_descriptor < 0)
    {
        if (isNewSecond)
            m_openError = Open();
        return;
    }
    struct stat status = {};
    if (IsNameOurs(status))
        m_size = status.st_size;
    else
        FollowName();
}

bool CLogFile::IsNameOurs(struct stat& status) const
{
    struct stat named = {};
    return fstat(m_descriptor, &status) == 0 &&
           lstat(Path().c_str(), &named) == 0 && IsSameFile(status, named);
}

// While the name cannot be opened, lines go on to the file in use, unless that
// file has been unlinked.
int CLogFile::FollowName()
{
    const int error = Open();
    struct stat status = {};
    if (error == 0 ||
        (fstat(m_descriptor, &status) == 0 && status.st_nlink > 0))
        return error;
    Close();
    m_openError = error;
    return error;
}

int CLogFile::Open()
{
    // A failure shows when the directory is opened.
    mkdir(m_directory.c_str(), S_IRWXU);
    const CDescriptor directory(OpenDirectory(m_directory));
    return directory.Get() < 0 ? errno : OpenIn(directory.Get());
}

int CLogFile::OpenIn(int directory)
{
    // O_NONBLOCK, so that a pipe in the file's place cannot stop the process;
    // readable, to see whether the file ends with a whole line.
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
    return UseFile(file, status);
}

int CLogFile::UseFile(int file, const struct stat& status)
{
    // The descriptor's number stays the same when the file changes. Otherwise a
    // signal handler could write to another file that has got the old number.
    if (m_descriptor < 0)
        m_descriptor = file;
    else
    {
        const CDescriptor extra(file);
        if (!DuplicateOnto(file, m_descriptor))
            return errno;
    }
    m_size = status.st_size;
    m_sinceCheck = 0;
    m_isTorn = WasLeftTorn();
    return 0;
}

void CLogFile::Close()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
    m_descriptor = -1;
}

void CLogFile::Rotate(std::time_t now)
{
    if (now == m_rotationFailedAt)
        return;
    if (!LockFile(F_WRLCK))
    {
        m_checkedAt = 0;
        return;
    }
    struct stat status = {};
    int error = IsNameOurs(status) ? ShiftOldFiles() : 0;
    if (error == 0)
        error = FollowName();
    // Only after a failure is the locked file still open.
    if (error != 0 && m_descriptor >= 0)
        LockFile(F_UNLCK);
    m_rotationFailedAt = error == 0 ? 0 : now;
    if (error == 0 || m_rotationError == 0)
        m_isRotationErrorTold = false;
    m_rotationError = error;
}

bool CLogFile::LockFile(short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(m_descriptor, F_SETLK, &lock) == 0;
}

int CLogFile::ShiftOldFiles()
{
    const CDescriptor directory(OpenDirectory(m_directory));
    if (directory.Get() < 0)
        return errno;
    const auto numbered = [this](int number)
    { return m_name + "." + std::to_string(number); };

    // More than one file is removed when an earlier setting kept more.
    int number = std::max(m_oldFiles, 1);
    while (unlinkat(directory.Get(), numbered(number).c_str(), 0) == 0)
        ++number;

    // A rename fails where a number is missing: an operator has removed the
    // file, or a rotation was interrupted.
    for (number = m_oldFiles - 1; number > 0; --number)
        renameat(directory.Get(), numbered(number).c_str(), directory.Get(),
                 numbered(number + 1).c_str());
    const int result = m_oldFiles == 0
                           ? unlinkat(directory.Get(), m_name.c_str(), 0)
                           : renameat(directory.Get(), m_name.c_str(),
                                      directory.Get(), numbered(1).c_str());
    return result == 0 ? 0 : errno;
}

int CLogFile::TakeRotationError()
{
    if (m_rotationError == 0 || m_isRotationErrorTold)
        return 0;
    m_isRotationErrorTold = true;
    return m_rotationError;
}

int CLogFile::WriteLine(std::string_view line)
{
    struct stat status = {};
    if (m_isTorn && EndsInMidLine(status) &&
        WriteWhole(m_descriptor, "\n", 1) != 1)
        return errno;
    m_isTorn = false;

    // One system call, unless the disk fills up: then a second one gives the
    // error.
    const std::size_t written =
        WriteWhole(m_descriptor, line.data(), line.size());
    m_size += static_cast<std::int64_t>(written);
    m_sinceCheck += static_cast<std::int64_t>(written);
    m_isTorn = written > 0 && written < line.size();
    return written == line.size() ? 0 : errno;
}

// The file also ends in the middle of a line while the system copies another
// process's line to it. Setting the file's mode again waits until that write is
// done; the file is longer then.
bool CLogFile::WasLeftTorn() const
{
    struct stat before = {};
    struct stat after = {};
    return EndsInMidLine(before) &&
           fchmod(m_descriptor, before.st_mode & 07777) == 0 &&
           EndsInMidLine(after) && after.st_size == before.st_size;
}

bool CLogFile::EndsInMidLine(struct stat& status) const
{
    char last = '\n';
    return fstat(m_descriptor, &status) == 0 && status.st_size > 0 &&
           pread(m_descriptor, &last, 1, status.st_size - 1) == 1 &&
           last != '\n';
}

} // namespace KzaCore
