// SPDX-License-Identifier: Apache-2.0
//
// POSIX has no way to inform a process of its parent's end.

#include "service/ParentDeath.h"

#include <wx/log.h>

void StopWithParent(pid_t /*parent*/)
{
    wxLogVerbose("On this system a worker whose watchdog was killed goes on "
                 "and has to be stopped by its own pid.");
}
