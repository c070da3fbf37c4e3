// SPDX-License-Identifier: Apache-2.0
//
// Nothing is armed: the system's own core file is what a crash leaves.

#include "kza_core/CrashHandler.h"

namespace KzaCore
{

void InitCrashHandler(const wxString& /*dumpFile*/,
                      const wxString& /*appName*/,
                      bool /*fullDump*/)
{
}

} // namespace KzaCore
