// SPDX-License-Identifier: Apache-2.0
//
// The path of a stop request to the script's main.
//
// A stop is announced when two facts hold, both guarded by one mutex: a stop
// was requested, which the main thread finds out, and main runs, which the
// script thread reports. The thread that makes the second of them true
// announces the stop, so it is announced exactly once:
//
//   1. Main thread: SIGTERM is pending. m_isRequested becomes true; when main
//      runs, the stop is announced.
//   2. Script thread: init has returned, m_phase goes from Before to Runs; when
//      a stop was requested, it is announced. It is not while init runs.
//   3. Script thread: main has returned, m_phase goes from Runs to After and
//      the announcement is withdrawn, so that shutdown may wait again. A stop
//      request after this is not announced: the script thread takes the signal
//      itself.
//
// The timer of the reminders is first set in step 1, so that a service without
// a stop request is not woken. It is not set again after step 3.

#include "service/StopWatch.h"

#include "ApplTrace.h"

#include "kza_core/Runnable.h"

#include <wx/log.h>

#include <algorithm>
#include <climits>
#include <csignal>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

CStopWatch::CStopWatch(KzaCore::CRunnable& script)
    : m_script(script), m_pending(SIGTERM, [this] { OnStopRequest(); })
{
    m_timer.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { OnReminder(); });
}

void CStopWatch::Start(wxEventLoopBase& loop)
{
    m_pending.Watch(loop);
}

void CStopWatch::MainBegins()
{
    const KzaCore::CLock lock(m_mutex);
    m_phase = EPhase::Runs;
    if (m_isRequested)
        m_script.AnnounceStop();
}

void CStopWatch::MainEnds()
{
    const KzaCore::CLock lock(m_mutex);
    m_phase = EPhase::After;
    m_script.WithdrawStop();
}

void CStopWatch::OnStopRequest()
{
    {
        const KzaCore::CLock lock(m_mutex);
        m_isRequested = true;
        if (m_phase == EPhase::Runs)
            m_script.AnnounceStop();
    }
    APPL_TRACE("Stop request noticed");
    m_requestTime = steady_clock::now();
    ScheduleReminder();
}

void CStopWatch::OnReminder()
{
    const EPhase phase = Phase();
    if (phase == EPhase::After)
        return;
    const std::chrono::seconds due =
        m_reminder.Take(steady_clock::now() - m_requestTime);
    if (due.count() > 0 && phase == EPhase::Runs)
        wxLogWarning("Stop requested %lld s ago, 'main' is still running",
                     static_cast<long long>(due.count()));
    ScheduleReminder();
}

// The framework's timer uses the wall clock, which may be set meanwhile, and an
// int for the time. When it fires early, no reminder is due and it is set
// again.
void CStopWatch::ScheduleReminder()
{
    constexpr milliseconds kShortest{1};
    constexpr milliseconds kLongest{INT_MAX};
    const auto left = std::chrono::ceil<milliseconds>(
        m_reminder.Next() - (steady_clock::now() - m_requestTime));
    m_timer.StartOnce(
        static_cast<int>(std::clamp(left, kShortest, kLongest).count()));
}

CStopWatch::EPhase CStopWatch::Phase() const
{
    const KzaCore::CLock lock(m_mutex);
    return m_phase;
}
