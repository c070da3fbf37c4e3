// SPDX-License-Identifier: Apache-2.0
//
// CRestartPolicy decides whether and when a worker is started, JudgeWorkerEnd()
// decides what follows from a worker's end, and CStopRelay handles signals.
// This file forks, waits and reports. Each worker is reaped before the next one
// starts.

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

// The time after the delay, by the monotonic clock: the wall clock may be set
// meanwhile, above all while the host starts.
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

// Waits for the whole delay: the condition is never signalled, and a signal to
// the process does not end the wait early. So a back-off lasts as long as the
// log says.
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

// True when the pid file belongs to another running agent. A stop request
// removes the file, so the next agent may have started while the worker was
// still in its shutdown; that agent's file must stay.
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

// The exit status that the parent of this process gets.
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

        // The time before the delay counts: a long back-off shortens the period
        // in which later starts are counted.
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

// Forks without exec: the worker uses the daemon's memory, which is sound
// because the daemon has one thread, no Lua state and no open database. This
// function returns in the parent only.
//
// SIGTERM is blocked in both processes across the fork, with the watchdog's
// other signals. A stop request that comes meanwhile stays pending: in the
// parent until it waits for the worker, in the worker until the script thread
// waits for the signal. A signal that was delivered at once would kill a
// watchdog whose relay is not installed yet, and leave its worker alone; it
// would kill the first worker; and a later worker, which inherits the relay as
// its handler, would drop the signal as the relay's own broadcast.
pid_t CWatchdog::ForkWorker()
{
    const pid_t watchdog = getpid();
    // Otherwise both processes would write the content of the C library's
    // buffers.
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

// Ends by exit() and does not return, so that no code of the watchdog's callers
// on the stack, such as the removal of the pid file, runs in a worker.
void CWatchdog::BecomeWorker(pid_t watchdog) const
{
    m_relay.LeaveToWorker();
    StopWithParent(watchdog);
    exit(m_workerMain());
}

// Like waitpid(), with the watchdog's signals delivered meanwhile.
pid_t CWatchdog::Wait(pid_t worker, int& status) const
{
    const CStopRelay::CDelivery delivery(m_relay);
    return waitpid(worker, &status, 0);
}

// The wait status of the worker, unset when waiting failed.
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

// The script may run for long. The watchdog's signals are delivered meanwhile,
// so that a second stop request can end the watchdog.
bool CWatchdog::RunDriverScript(wxString& error) const
{
    const CStopRelay::CDelivery delivery(m_relay);
    wxString output;
    unsigned long result = 0;
    return KzaCore::Execute(kDriverScript, kDriverScriptArguments, output,
                            result, error);
}
