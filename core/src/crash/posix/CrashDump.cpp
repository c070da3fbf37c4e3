// SPDX-License-Identifier: Apache-2.0
//
// For a system without an implementation of dumps: enables the system's own
// core file instead.

#include "crash/CrashPlan.h"

#include <sys/resource.h>

#include <wx/log.h>

namespace KzaCore
{

void ArmCrashDumps(const CCrashPlan& plan)
{
    rlimit core = {};
    if (getrlimit(RLIMIT_CORE, &core) == 0)
    {
        core.rlim_cur = core.rlim_max;
        setrlimit(RLIMIT_CORE, &core);
    }
    wxLogVerbose("%s/%s is not written on this system; a crash leaves the "
                 "system's own core file%s.",
                 plan.directory, plan.fileName,
                 core.rlim_max == 0 ? ", which is disabled" : "");
}

} // namespace KzaCore
