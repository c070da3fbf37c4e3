// SPDX-License-Identifier: Apache-2.0
//
// The main thread's event loop, ended from the script thread.
//
// The framework frees its loop as soon as it returns. The thread that asked
// for the exit may still be inside the loop's wake-up then, so the application
// keeps this one until that thread has been joined.
//
// Threads: made, run and deleted on the main thread; Exit() may be called from
// the thread that found it through the progress.

#pragma once

#include "base/Mutex.h"

#include <wx/evtloop.h>

#include <atomic>
#include <chrono>
#include <condition_variable>

class CMainLoop;

/// The progress of the main thread with its loop. Threads: any.
class CMainLoopProgress
{
public:
    /// The loop once it has been entered and can be asked to exit, else null.
    [[nodiscard]] CMainLoop* Entered() const
    {
        return m_entered.load(std::memory_order_acquire);
    }

    /// Waits until the loop has been entered.
    ///
    /// \return false when that does not happen within the limit.
    bool AwaitEntered(std::chrono::milliseconds limit);

    /// Waits until the loop waits for events.
    ///
    /// \return false when that does not happen within the limit.
    bool AwaitIdle(std::chrono::milliseconds limit);

private:
    friend class CMainLoop;

    void NoteEntered(CMainLoop* loop);
    void NoteIdle();

    std::atomic<CMainLoop*> m_entered{nullptr}; // set under m_mutex

    KzaCore::CMutex m_mutex;
    std::condition_variable m_condition;
    bool m_idle KZA_GUARDED_BY(m_mutex) = false;
};

class CMainLoop : public wxConsoleEventLoop
{
public:
    /// \param progress  Updated by the loop; outlives it.
    explicit CMainLoop(CMainLoopProgress& progress);

    bool Dispatch() override;

protected:
    void OnNextIteration() override;

private:
    CMainLoopProgress& m_progress;
};
