// SPDX-License-Identifier: Apache-2.0
//
// What a worker's end means to the watchdog: what the log says of it and what
// comes next, as a function of the wait status alone.
//
// Threads: any, where strsignal() may be called.

#pragma once

#include <wx/log.h>
#include <wx/string.h>

/// What the watchdog does after a worker's end.
enum class EAfterWorker
{
    Restart,
    StopDriverAndRestart,
    EndService,
};

struct CWorkerEnd
{
    wxLogLevel level = wxLOG_Info; ///< wxLOG_Error after a crash
    wxString text;                 ///< for the log
    EAfterWorker next = EAfterWorker::Restart;
    int serviceStatus = 0; ///< with EndService: what the service ends with
};

/// \param waitStatus  As waitpid() gives it.
CWorkerEnd JudgeWorkerEnd(int waitStatus);

/// A signal as the log describes it.
///
/// \param description  As strsignal() gives it, which may be null.
wxString SignalText(const char* description);
