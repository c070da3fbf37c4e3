// SPDX-License-Identifier: Apache-2.0

#include "service/PendingSignal.h"

#include "service/PendingSignalDescriptor.h"

#include "base/SignalSet.h"

#include <wx/log.h>

#include <unistd.h>

CPendingSignal::CPendingSignal(int signal, std::function<void()> notice)
    : m_signal(signal), m_notice(std::move(notice))
{
    m_timer.Bind(wxEVT_TIMER, [this](wxTimerEvent&) { LookForSignal(); });
}

CPendingSignal::~CPendingSignal()
{
    EndWatch();
}

void CPendingSignal::Watch(wxEventLoopBase& loop)
{
    m_descriptor = OpenPendingSignal(m_signal);
    if (m_descriptor >= 0)
        m_source.reset(
            loop.AddSourceForFD(m_descriptor, this, wxEVENT_SOURCE_INPUT));
    if (m_source == nullptr)
        WatchByTimer();
}

void CPendingSignal::WatchByTimer()
{
    wxLogVerbose("Stop requests are noticed up to %d ms late.",
                 static_cast<int>(kLongestDelay.count()));
    m_timer.Start(static_cast<int>(kLongestDelay.count()));
}

void CPendingSignal::OnReadWaiting()
{
    Notice();
}

void CPendingSignal::LookForSignal()
{
    sigset_t pending = KzaCore::SignalSet({});
    if (sigpending(&pending) == 0 && sigismember(&pending, m_signal) == 1)
        Notice();
}

// Ends the watch before anything else: the signal stays pending, so its
// descriptor stays readable and would keep the loop busy.
void CPendingSignal::Notice()
{
    EndWatch();
    m_notice();
}

void CPendingSignal::EndWatch()
{
    m_timer.Stop();
    m_source.reset();
    if (m_descriptor >= 0)
        close(m_descriptor);
    m_descriptor = -1;
}
