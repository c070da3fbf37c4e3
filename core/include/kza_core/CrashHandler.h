// SPDX-License-Identifier: Apache-2.0
//
// Dumps of a crashing process.
//
// Threads: InitCrashHandler() belongs to the main thread, before others exist.

#pragma once

#include "kza_core/Export.h"

class wxString;

namespace KzaCore
{

/// Arms the writing of a dump when the process dies of a fault.
///
/// \param dumpFile  Path of the dump; its directory exists.
/// \param appName   The application's name, recorded in the dump.
/// \param fullDump  Record all readable memory too.
KZA_API void InitCrashHandler(const wxString& dumpFile,
                              const wxString& appName,
                              bool fullDump);

} // namespace KzaCore
