// SPDX-License-Identifier: Apache-2.0
//
// The log target that writes the framework's records to the agent's disk log,
// `<app.path.work>/log/<app.name>.log`.
//
// One record a line:
//   YYYY-MM-DD HH:MM:SS [pid:tid] LEVEL component: text
// LEVEL is ERROR, WARNING, MESSAGE, INFO, VERBOSE, DEBUG or TRACE; a line
// break inside a text is shown as `\n`. Each record is one write(2) to a file
// opened for appending, so that watchdog and worker can share the file; the
// write is done when the call returns. Records made before the working
// directory is known are kept and written first.
//
// The file is rotated when it has grown past `log.maxsize` bytes; `log.keep`
// older files are kept beside it as `.1`, `.2` and so on. `log.console` says
// which records are repeated on standard error: the name of a level for its
// records and all worse ones, true for all, false for none. While it is unset,
// errors and warnings are repeated if standard error is a terminal.
//
// Threads: any. All targets of a process write through one sink with a lock of
// its own; the objects themselves have no state. A forked child may go on
// logging.

#pragma once

#include "kza_core/Export.h"
#include "kza_core/LogLevel.h"

#include <wx/log.h>
#include <wx/string.h>

namespace KzaCore
{

class KZA_API CLog2Disk : public wxLog
{
public:
    CLog2Disk();

protected:
    void DoLogRecord(wxLogLevel level,
                     const wxString& msg,
                     const wxLogRecordInfo& info) override;
};

/// Writes one record straight to the disk log, past the framework, with the
/// framework's threshold for the level applied.
///
/// \param component  Empty for the default component.
KZA_API void LogToDisk(ELogLevel level,
                       const wxString& component,
                       const wxString& text,
                       EConsole console = EConsole::Repeat);

} // namespace KzaCore
