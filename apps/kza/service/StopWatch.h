// SPDX-License-Identifier: Apache-2.0
//
// Announcing a stop request to a script whose main is still running.
//
// In background mode SIGTERM stays pending until the script thread waits for
// it, which happens only after the script's main has returned. A main that
// loops would never notice the signal. So the main thread's event loop watches
// for a pending SIGTERM and announces the stop to the script thread, which ends
// a wait of main early. The signal itself stays pending for the script thread.
// When main does not return all the same, the log says so from time to time.
//
// Threads: made and started on the main thread; MainBegins() and MainEnds()
// belong to the script thread.

#pragma once

#include "service/PendingSignal.h"
#include "service/StopReminder.h"

#include "base/Mutex.h"

#include <wx/timer.h>

#include <chrono>

namespace KzaCore
{
class CRunnable;
} // namespace KzaCore

class CStopWatch
{
public:
    /// \param script  The script thread; outlives this object.
    explicit CStopWatch(KzaCore::CRunnable& script);

    CStopWatch(const CStopWatch&) = delete;
    CStopWatch& operator=(const CStopWatch&) = delete;

    /// Begins to watch in the main thread's loop, on that thread.
    void Start(wxEventLoopBase& loop);

    /// To be called just before the script's main. Announces a stop request
    /// that came before.
    void MainBegins();

    /// To be called when the script's main has returned. Withdraws the
    /// announcement, if any.
    void MainEnds();

private:
    enum class EPhase
    {
        Before, // main has not begun
        Runs,
        After // main has returned
    };

    void OnStopRequest();
    void OnReminder();
    void ScheduleReminder();
    [[nodiscard]] EPhase Phase() const;

    KzaCore::CRunnable& m_script;

    // Of the main thread.
    CPendingSignal m_pending;
    wxTimer m_timer;
    CStopReminder m_reminder;
    std::chrono::steady_clock::time_point m_requestTime;

    mutable KzaCore::CMutex m_mutex;
    EPhase m_phase KZA_GUARDED_BY(m_mutex) = EPhase::Before;
    bool m_isRequested KZA_GUARDED_BY(m_mutex) = false;
};
