// SPDX-License-Identifier: Apache-2.0

#include "base/NewDescriptor.h"

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

bool OpenPipe(std::array<int, 2>& ends)
{
    return pipe2(ends.data(), O_CLOEXEC) == 0;
}

int OpenTemporary(char* path)
{
    return mkostemp(path, O_CLOEXEC);
}

bool DuplicateOnto(int from, int onto)
{
    return dup3(from, onto, O_CLOEXEC) >= 0;
}

bool LockOpenFile(int fd, short type)
{
    struct flock lock
    {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

} // namespace KzaCore
