// SPDX-License-Identifier: Apache-2.0
//
// The watchdog: keeps one worker running until the service is to end or too
// many restarts have failed.
//
// Threads: the only thread of the daemon.

#pragma once

#include "service/DumpWatch.h"
#include "service/RestartPolicy.h"
#include "service/StopRelay.h"

#include <wx/string.h>

#include <functional>
#include <optional>

#include <sys/types.h>

struct CWorkerEnd;

class CWatchdog
{
public:
    /// The worker's main function; its result is the worker's exit status.
    /// Called in the worker only, which ends when it returns.
    using WorkerMain = std::function<int()>;

    /// \param pidFile   Removed by the first stop request, else by Run().
    /// \param dumpFile  The path of the dump that a crashing worker leaves.
    CWatchdog(const wxString& pidFile,
              const wxString& dumpFile,
              WorkerMain workerMain);

    /// Starts workers, one after the other, until one of them ends the service.
    /// The process must have one thread, no Lua state and no open database.
    ///
    /// \return the service's exit status: the last worker's, or -1 after too
    ///         many restarts, a fork or a wait that failed.
    int Run();

private:
    int Supervise();
    void Delay(const CRestartPolicy::CDecision& next) const;
    pid_t ForkWorker();
    [[noreturn]] void BecomeWorker(pid_t watchdog) const;
    [[nodiscard]] pid_t Wait(pid_t worker, int& status) const;
    [[nodiscard]] std::optional<int> WaitForWorker(pid_t worker) const;
    void Report(const CWorkerEnd& end);
    void StopDriver() const;
    bool RunDriverScript(wxString& error) const;

    const wxString m_pidFile;
    CDumpWatch m_dump;
    const WorkerMain m_workerMain;
    CRestartPolicy m_policy;
    CStopRelay m_relay;
};
