// SPDX-License-Identifier: Apache-2.0
//
// POSIX does not tell a process that its parent has ended.

#include "service/ParentDeath.h"

#include <wx/log.h>

void StopWithParent(pid_t /*parent*/)
{
    wxLogVerbose("On this system a worker whose watchdog was killed goes on "
                 "and has to be stopped by its own pid.");
}
