// SPDX-License-Identifier: Apache-2.0

#include "service/StopWatch.h"

#include "service/PendingSignal.h"

#include "kza_core/Runnable.h"

#include <csignal>
#include <unistd.h>

CStopWatch::CStopWatch(KzaCore::CRunnable& script) : m_script(script)
{
}

CStopWatch::~CStopWatch()
{
    Stop();
}

void CStopWatch::Start(wxEventLoopBase& loop)
{
    m_pending = OpenPendingSignal(SIGTERM);
    if (m_pending >= 0)
        m_source.reset(
            loop.AddSourceForFD(m_pending, this, wxEVENT_SOURCE_INPUT));
}

void CStopWatch::Stop()
{
    m_source.reset();
    if (m_pending >= 0)
        close(m_pending);
    m_pending = -1;
}

void CStopWatch::Disarm()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_armed = false;
    m_script.withdrawExit();
}

void CStopWatch::OnReadWaiting()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_armed)
            m_script.requestExit();
    }
    // Once is enough; a signal that stays pending would keep the loop busy.
    Stop();
}
