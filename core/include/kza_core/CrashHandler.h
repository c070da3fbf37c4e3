// SPDX-License-Identifier: Apache-2.0
//
// Dumps of a crashing process.
//
// Threads: InitCrashHandler() belongs to the main thread, before others exist.

#pragma once

#include "kza_core/Export.h"

class wxString;

/// The text of the last crash, for a debugger that reads a dump and has no more
/// information about the process than the library's symbols. Empty before a
/// crash; missing where no dumps can be made. Programs do not use it.
extern "C" KZA_API char kza_crash_note[];

namespace KzaCore
{

/// Arms the writing of a dump when the process, or a process forked from it,
/// dies of SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP or SIGABRT, on any thread.
///
/// The dump is in the minidump format, readable by its owner alone, and
/// appears under its name when it is complete; the one before is kept with
/// `.1` after its name. The process then dies of the signal as it would without
/// a dump. Where dumps cannot be made, the system's own core file is not
/// prevented.
///
/// Problems are logged. A second call replaces the arguments of the first.
///
/// \param dumpFile  Path of the dump; its directory exists and is no symbolic
///                  link.
/// \param appName   The application's name, recorded in the dump.
/// \param fullDump  Record all readable memory too.
KZA_API void InitCrashHandler(const wxString& dumpFile,
                              const wxString& appName,
                              bool fullDump);

} // namespace KzaCore
