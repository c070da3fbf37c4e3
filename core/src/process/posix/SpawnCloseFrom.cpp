// SPDX-License-Identifier: Apache-2.0
//
// Closes what is open when the child is started; a descriptor that another
// thread opens meanwhile is closed only if it is marked so itself.

#include "process/SpawnCloseFrom.h"

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

void SpawnCloseFrom(posix_spawn_file_actions_t& actions, int first)
{
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int fd = first; fd < limit; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            posix_spawn_file_actions_addclose(&actions, fd);
}

} // namespace KzaCore
