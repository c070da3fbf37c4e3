// SPDX-License-Identifier: Apache-2.0

#include "base/NewDescriptor.h"

#include "base/Descriptor.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

bool CloseOnExec(int fd)
{
    return fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
}

} // namespace

bool OpenPipe(std::array<int, 2>& ends)
{
    if (pipe(ends.data()) != 0)
        return false;
    if (CloseOnExec(ends[0]) && CloseOnExec(ends[1]))
        return true;
    const int error = errno;
    close(ends[0]);
    close(ends[1]);
    errno = error;
    return false;
}

int OpenTemporary(char* path)
{
    CDescriptor file(mkstemp(path));
    if (!file.IsOpen())
        return -1;
    if (!CloseOnExec(file.Get()))
    {
        unlink(path);
        return -1;
    }
    const int fd = file.Get();
    file.Disown();
    return fd;
}

bool DuplicateOnto(int from, int onto)
{
    return dup2(from, onto) >= 0 && CloseOnExec(onto);
}

bool LockOpenFile(int fd, short type)
{
    struct flock lock
    {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    // Not in POSIX; several systems have it.
#ifdef F_OFD_SETLK
    return fcntl(fd, F_OFD_SETLK, &lock) == 0;
#else
    return fcntl(fd, F_SETLK, &lock) == 0;
#endif
}

} // namespace KzaCore
