// SPDX-License-Identifier: Apache-2.0
//
// The parent-death signal of prctl(2).

#include "service/ParentDeath.h"

#include <wx/log.h>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

void StopWithParent(pid_t parent)
{
    if (prctl(PR_SET_PDEATHSIG, SIGTERM, 0, 0, 0) != 0)
        wxLogSysError("Unable to ask for a signal at the watchdog's end");
    // A parent that ended before the request causes no signal, so it is sent
    // here: to the process and not to the thread, so that any thread may wait
    // for it.
    if (getppid() != parent)
        kill(getpid(), SIGTERM);
}
