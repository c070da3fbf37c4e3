// SPDX-License-Identifier: Apache-2.0
//
// Watching for a blocked signal to become pending. The signal stays pending for
// the thread that waits for it.
//
// Where the system has a descriptor for pending signals, the event loop waits
// for that one, at no cost until the signal comes. Elsewhere a timer of the
// loop checks twice a second.
//
// Threads: the main thread, which runs the event loop.

#pragma once

#include <wx/evtloop.h>
#include <wx/evtloopsrc.h>
#include <wx/timer.h>

#include <chrono>
#include <functional>
#include <memory>

class CPendingSignal : private wxEventLoopSourceHandler
{
public:
    /// The longest time by which the signal is noticed late.
    static constexpr std::chrono::milliseconds kLongestDelay{500};

    /// \param signal  Blocked in every thread of the process.
    /// \param notice  Called once, from the event loop.
    CPendingSignal(int signal, std::function<void()> notice);
    ~CPendingSignal() override;

    CPendingSignal(const CPendingSignal&) = delete;
    CPendingSignal& operator=(const CPendingSignal&) = delete;

    /// Begins to watch. A signal that is pending already is noticed, too.
    void Watch(wxEventLoopBase& loop);

private:
    void OnReadWaiting() override;
    void OnWriteWaiting() override {}
    void OnExceptionWaiting() override {}

    void WatchByTimer();
    void LookForSignal();
    void Notice();
    void EndWatch();

    const int m_signal;
    const std::function<void()> m_notice;
    int m_descriptor = -1;
    std::unique_ptr<wxEventLoopSource> m_source;
    wxTimer m_timer;
};
