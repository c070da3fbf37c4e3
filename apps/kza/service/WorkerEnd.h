// SPDX-License-Identifier: Apache-2.0
//
// The judgement of a worker's end: the record in the log and the watchdog's
// next step, as a function of the wait status alone.
//
// Threads: any, where strsignal() may be called.

#pragma once

#include <wx/log.h>
#include <wx/string.h>

/// The watchdog's next step after a worker's end.
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
    int serviceStatus = 0; ///< with EndService: the service's exit status
};

/// \param waitStatus  From waitpid().
CWorkerEnd JudgeWorkerEnd(int waitStatus);

/// The description of a signal for the log.
///
/// \param description  From strsignal(); may be null.
wxString SignalText(const char* description);
