// SPDX-License-Identifier: Apache-2.0
//
// How a stop request reaches the script's main.
//
// Two facts decide, and both are guarded by one mutex: whether a stop was
// requested, which the main thread finds out, and whether main runs, which the
// script thread knows. Whichever thread completes "requested, and main runs"
// announces the stop, so it is announced exactly once:
//
//   1. Main thread: SIGTERM is pending. m_isRequested becomes true; when main
//      runs, the stop is announced.
//   2. Script thread: init has returned, m_phase goes from Before to Runs; when
//      a stop was requested, it is announced. Nothing is told while init runs.
//   3. Script thread: main has returned, m_phase goes from Runs to After and
//      the announcement is withdrawn, so that shutdown may wait again. A stop
//      request after this is not announced: the script thread takes the signal
//      itself.

#include "service/StopWatch.h"

#include "ApplTrace.h"

#include "kza_core/Runnable.h"

#include <csignal>

CStopWatch::CStopWatch(KzaCore::CRunnable& script)
    : m_script(script), m_pending(SIGTERM, [this] { OnStopRequest(); })
{
}

void CStopWatch::Start(wxEventLoopBase& loop)
{
    m_pending.Watch(loop);
}

void CStopWatch::MainBegins()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_phase = EPhase::Runs;
    if (m_isRequested)
        m_script.AnnounceStop();
}

void CStopWatch::MainEnds()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_phase = EPhase::After;
    m_script.WithdrawStop();
}

void CStopWatch::OnStopRequest()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isRequested = true;
        if (m_phase == EPhase::Runs)
            m_script.AnnounceStop();
    }
    APPL_TRACE("Stop request noticed");
}
