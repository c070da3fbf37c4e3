// SPDX-License-Identifier: Apache-2.0
//
// The parent-death signal of prctl(2).

#include "process/EndWithParent.h"

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

namespace KzaCore
{

void EndWithParent(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGINT, 0, 0, 0);
    // A parent that ended before the request causes no signal.
    if (getppid() != parent)
        _exit(0);
}

} // namespace KzaCore
