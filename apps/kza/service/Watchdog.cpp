// SPDX-License-Identifier: Apache-2.0
//
// Whether and when a worker is started is decided by CRestartPolicy, what its
// end means by JudgeWorkerEnd(), and signals are left to CStopRelay. This file
// forks, waits and reports. Each worker is reaped before the next one starts.

#include "service/Watchdog.h"

#include "service/ParentDeath.h"
#include "service/WorkerEnd.h"

#include "base/ProcessAlive.h"
#include "kza_core/Execute.h"
#include "kza_core/PidFile.h"

#include <wx/filefn.h>
#include <wx/log.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr int kFailed = -1;

constexpr char kDriverScript[] = "/opt/kz_agent/SunOS.init";
constexpr char kDriverScriptArguments[] = "stopmod";

int ReportTooManyRestarts(const CRestartPolicy::CDecision& next)
{
    wxLogError("Too many restarts in too short of a time, exiting "
               "(%d restarts in less than %d seconds)",
               next.recentStarts, CRestartPolicy::kPeriodSeconds);
    return kFailed;
}

// By the clock that is never set: the host's time may be set while it starts.
timespec TimeAfter(milliseconds delay)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const nanoseconds time =
        seconds(now.tv_sec) + nanoseconds(now.tv_nsec) + delay;
    const auto whole = std::chrono::duration_cast<seconds>(time);
    return {static_cast<time_t>(whole.count()),
            static_cast<long>((time - whole).count())};
}

// Nothing signals the condition, and a signal to the process does not cut the
// wait short: a back-off lasts as long as the log says.
void WaitFully(milliseconds delay)
{
    const timespec end = TimeAfter(delay);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_t never;
    pthread_cond_init(&never, &attributes);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

    pthread_mutex_lock(&mutex);
    while (pthread_cond_timedwait(&never, &mutex, &end) == 0)
        continue;
    pthread_mutex_unlock(&mutex);

    pthread_cond_destroy(&never);
    pthread_condattr_destroy(&attributes);
}

// After a stop request the file has gone and the next agent may have started
// while the worker was still at its shutdown: that agent's file stays.
bool NamesAnotherAgent(const wxString& pidFile)
{
    const int pid = KzaCore::ReadPidFile(pidFile);
    return pid != 0 && pid != getpid() && KzaCore::IsProcessAlive(pid);
}

void RemovePidFile(const wxString& pidFile)
{
    if (!NamesAnotherAgent(pidFile) && wxFileExists(pidFile))
        wxRemoveFile(pidFile);
}

// As the system shows it to the process that waits for this one.
int AsExitStatus(int result)
{
    return result & 0xFF;
}

} // namespace

CWatchdog::CWatchdog(const wxString& pidFile,
                     const wxString& dumpFile,
                     WorkerMain workerMain)
    : m_pidFile(pidFile), m_dump(dumpFile), m_workerMain(std::move(workerMain))
{
}

int CWatchdog::Run()
{
    const int result = Supervise();
    RemovePidFile(m_pidFile);
    if (result != 0)
        wxLogError("The service ends with status %d", AsExitStatus(result));
    return result;
}

int CWatchdog::Supervise()
{
    for (;;)
    {
        const time_t now = time(nullptr);
        const CRestartPolicy::CDecision next = m_policy.BeforeStart(now);
        if (!next.allowed)
            return ReportTooManyRestarts(next);
        Delay(next);

        // The time from before the delay: a long back-off shortens the period
        // that the next count looks at.
        m_policy.NoteStart(now);

        const pid_t worker = ForkWorker();
        if (worker == -1)
            return kFailed;
        const std::optional<int> status = WaitForWorker(worker);
        if (!status)
            return kFailed;
        const CWorkerEnd end = JudgeWorkerEnd(*status);
        Report(end);
        if (end.next == EAfterWorker::EndService)
            return end.serviceStatus;
        if (end.next == EAfterWorker::StopDriverAndRestart)
            StopDriver();
    }
}

void CWatchdog::Delay(const CRestartPolicy::CDecision& next) const
{
    if (next.recentStarts == 0)
        return;
    wxLogVerbose("Delaying %dms before restart %d",
                 static_cast<int>(next.delay.count()), next.recentStarts);
    const CStopRelay::CDelivery delivery(m_relay);
    WaitFully(next.delay);
}

// A plain fork without exec: the worker goes on with the daemon's memory, which
// is sound because the daemon has one thread, no Lua state and no open
// database. Only the parent returns from here.
//
// SIGTERM is blocked in both processes across the fork, with the watchdog's
// other signals. A stop request that comes meanwhile stays pending: in the
// parent until it waits for the worker, in the worker until the script thread
// waits for the signal. Delivered at once, it would kill a watchdog whose relay
// is not installed yet, and leave its worker alone; it would kill the first
// worker; and a later worker, which inherits the relay as its handler, would
// drop it as a broadcast of its own.
pid_t CWatchdog::ForkWorker()
{
    const pid_t watchdog = getpid();
    // Both processes would write what lies in a buffer of the C library.
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker == 0)
        BecomeWorker(watchdog);
    if (worker == -1)
    {
        wxLogSysError("Unable to fork child");
        return worker;
    }
    m_relay.Install(m_pidFile);
    wxLogVerbose("Worker %d started", static_cast<int>(worker));
    return worker;
}

// Ends the process, so that nothing of the watchdog above on the stack, such as
// the removal of the pid file, ever runs in a worker.
void CWatchdog::BecomeWorker(pid_t watchdog) const
{
    m_relay.LeaveToWorker();
    StopWithParent(watchdog);
    exit(m_workerMain());
}

// As waitpid(), open to signals.
pid_t CWatchdog::Wait(pid_t worker, int& status) const
{
    const CStopRelay::CDelivery delivery(m_relay);
    return waitpid(worker, &status, 0);
}

// The wait status of the worker, nothing when waiting failed.
std::optional<int> CWatchdog::WaitForWorker(pid_t worker) const
{
    for (;;)
    {
        int status = 0;
        const pid_t ended = Wait(worker, status);
        if (ended == worker)
            return status;
        if (ended != -1)
            continue;
        if (errno != EINTR)
        {
            wxLogSysError("Error waiting for child process");
            return std::nullopt;
        }
        wxLogWarning("Waiting for child process interrupted - Try again");
    }
}

void CWatchdog::Report(const CWorkerEnd& end)
{
    wxLogGeneric(end.level, "%s", end.text);
    if (!m_dump.HasNew())
        return;
    const wxLogLevel level =
        end.level == wxLOG_Error ? wxLOG_Message : wxLOG_Info;
    wxLogGeneric(level, "Crash dump: %s", m_dump.Path());
}

void CWatchdog::StopDriver() const
{
    if (access(kDriverScript, X_OK) != 0)
        return;
    wxString error;
    if (RunDriverScript(error))
        wxLogMessage("Driver stopped using %s", wxString(kDriverScript));
    else
        wxLogError("Error stopping driver: %s", error);
}

// The script may take its time: a second stop request ends the watchdog
// meanwhile.
bool CWatchdog::RunDriverScript(wxString& error) const
{
    const CStopRelay::CDelivery delivery(m_relay);
    wxString output;
    unsigned long result = 0;
    return KzaCore::Execute(kDriverScript, kDriverScriptArguments, output,
                            result, error);
}
