// SPDX-License-Identifier: Apache-2.0
//
// Closes the descriptors that are open when this function runs. A descriptor
// that another thread opens between here and the child's exec is closed only if
// it has the close-on-exec flag.

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
