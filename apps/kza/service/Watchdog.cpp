// SPDX-License-Identifier: Apache-2.0
//
// Watchdog: keep one worker alive and know when to stop trying.
//
// Forks while it has one thread, no Lua state and no open database; only that
// makes the plain fork below safe. Whether to start again and after which delay
// is decided by CRestartPolicy; this file forks, waits and reports. The
// watchdog reaps each worker before it starts the next one.

#include "AgentApp.h"

#include "service/ParentDeath.h"
#include "service/RestartPolicy.h"
#include "service/StopRelay.h"

#include "base/ProcessAlive.h"
#include "kza_core/Execute.h"
#include "kza_core/PidFile.h"

#include <wx/filefn.h>
#include <wx/log.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr int kFailed = -1;

// A worker that ends with this code wants the kernel driver stopped before its
// successor starts.
constexpr int kExitStopDriver = 3;
constexpr char kDriverScript[] = "/opt/kz_agent/SunOS.init";
constexpr char kDriverScriptArguments[] = "stopmod";

bool IsCrashSignal(int signal)
{
    return signal == SIGILL || signal == SIGTRAP || signal == SIGABRT ||
           signal == SIGSEGV;
}

int ReportTooManyRestarts(const CRestartPolicy::Decision& next)
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

void DelayRestart(const CStopRelay& relay, const CRestartPolicy::Decision& next)
{
    if (next.recentStarts == 0)
        return;
    wxLogVerbose("Delaying %dms before restart %d",
                 static_cast<int>(next.delay.count()), next.recentStarts);
    const CStopRelay::CDelivery delivery(relay);
    WaitFully(next.delay);
}

pid_t WaitOnce(const CStopRelay& relay, pid_t worker, int& status)
{
    const CStopRelay::CDelivery delivery(relay);
    return waitpid(worker, &status, 0);
}

// The wait status of the worker, nothing when waiting failed.
std::optional<int> WaitForWorker(const CStopRelay& relay, pid_t worker)
{
    for (;;)
    {
        int status = 0;
        const pid_t ended = WaitOnce(relay, worker, status);
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

void ReportSignalled(int status)
{
    const int signal = WTERMSIG(status);
    const char* const known = strsignal(signal);
    const wxString description = known != nullptr ? known : "Unknown Signal";
    if (IsCrashSignal(signal))
        wxLogError("Child process crashed with status %d (signal %d: %s)",
                   status, signal, description);
    else
        wxLogVerbose("Child process exited with status %d (signal %d: %s)",
                     status, signal, description);
}

void ReportEnd(int status)
{
    if (WIFEXITED(status))
        wxLogVerbose("Child process exited with status %d (exit %d)", status,
                     WEXITSTATUS(status));
    else if (WIFSIGNALED(status))
        ReportSignalled(status);
    else
        wxLogVerbose("Child process exited with status %d", status);
}

bool RunDriverScript(const CStopRelay& relay, wxString& error)
{
    const CStopRelay::CDelivery delivery(relay);
    wxString output;
    unsigned long result = 0;
    return KzaCore::Execute(kDriverScript, kDriverScriptArguments, output,
                            result, error);
}

void StopDriver(const CStopRelay& relay)
{
    if (access(kDriverScript, X_OK) != 0)
        return;
    wxString error;
    if (RunDriverScript(relay, error))
        wxLogMessage("Driver stopped using %s", wxString(kDriverScript));
    else
        wxLogError("Error stopping driver: %s", error);
}

// The service's exit status, nothing when the worker is to be started again.
std::optional<int> DecideAfter(const CStopRelay& relay, int status)
{
    if (WIFEXITED(status))
    {
        if (WEXITSTATUS(status) != kExitStopDriver)
            return WEXITSTATUS(status);
        StopDriver(relay);
        return std::nullopt;
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM)
        return 0;
    return std::nullopt;
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

} // namespace

pid_t CAgentApp::ForkWorker(CStopRelay& relay)
{
    const pid_t watchdog = getpid();
    // What lies in a buffer of the C library would be written twice.
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker == 0)
    {
        relay.LeaveToWorker();
        StopWithParent(watchdog);
        RunScriptApp();
    }
    if (worker == -1)
        wxLogSysError("Unable to fork child");
    else
        relay.Install(m_pidFile);
    return worker;
}

int CAgentApp::SuperviseWorkers()
{
    CStopRelay relay;
    CRestartPolicy policy;
    for (;;)
    {
        const time_t now = time(nullptr);
        const CRestartPolicy::Decision next = policy.BeforeStart(now);
        if (!next.allowed)
            return ReportTooManyRestarts(next);
        DelayRestart(relay, next);

        // The time from before the delay: a long back-off shortens the period
        // that the next count looks at.
        policy.NoteStart(now);

        const pid_t worker = ForkWorker(relay);
        if (worker == -1)
            return kFailed;
        const std::optional<int> status = WaitForWorker(relay, worker);
        if (!status)
            return kFailed;
        ReportEnd(*status);
        if (const std::optional<int> result = DecideAfter(relay, *status))
            return *result;
    }
}

int CAgentApp::RunWatchdog()
{
    const int result = SuperviseWorkers();
    RemovePidFile(m_pidFile);
    return result;
}
