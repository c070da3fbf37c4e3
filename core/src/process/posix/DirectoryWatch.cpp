// SPDX-License-Identifier: Apache-2.0

#include "process/DirectoryWatch.h"

#include <cerrno>

namespace KzaCore
{

int OpenDirectoryWatch()
{
    errno = ENOSYS;
    return -1;
}

bool WatchDirectory(int /*watch*/, const char* /*directory*/)
{
    errno = ENOSYS;
    return false;
}

void ForgetChanges(int /*watch*/)
{
}

} // namespace KzaCore
