// SPDX-License-Identifier: Apache-2.0
//
// Base class of the program's threads, over the framework's thread class.
//
// A thread gets a log target of its own, so that its records reach the disk
// log at once. An exception that escapes OnRun() is described by the
// application's unhandled-exception hook on this thread, and the process ends
// with status 255.
//
// Threads: start() and join() belong to the thread that made the object;
// requestExit(), interrupt(), Awaken(), AnnounceStop() and WithdrawStop() may
// be called from any thread while the object lives, but not from a signal
// handler.

#pragma once

#include "kza_core/Export.h"

#include <wx/thread.h>

#include <chrono>
#include <memory>

namespace KzaCore
{

class CDom;

class KZA_API CRunnable : public wxThread
{
public:
    /// The real-time signal that wakes a thread from a blocking call. Where its
    /// disposition is the default, start() installs a handler that does
    /// nothing.
    static const int SigThreadDelete;

    /// \param reserved1, reserved2, reserved3  Must be false, -1 and false.
    CRunnable(bool reserved1, int reserved2, bool reserved3);
    ~CRunnable() override;

    CRunnable(const CRunnable&) = delete;
    CRunnable& operator=(const CRunnable&) = delete;

    /// Asks the thread to stop and waits until it has.
    ///
    /// \param exitCode  When not null, set to what Entry() returned.
    virtual wxThreadError Delete(void** exitCode);
    [[nodiscard]] virtual const wchar_t* GetThreadName() const;

    /// Ends a CDom::Wait() or SleepFor() of the thread, as a spurious wake-up
    /// would.
    virtual void Awaken();

    /// Interrupts a blocking call of the thread with SigThreadDelete.
    virtual void interrupt();

    /// Asks the thread to stop: sets the mark that TestDestroy() shows, then
    /// awakens and interrupts it. Does nothing to a thread that has ended.
    virtual void requestExit();

    /// Announces that the thread is to come to an end soon, and affects only
    /// its waits: the CDom::Wait() or SleepFor() that the thread is in ends at
    /// once, else the next one does; later ones last their time. All of them
    /// answer false until the announcement is withdrawn. No signal is sent, so
    /// a blocking call of the thread goes on, and TestDestroy() does not show
    /// the announcement. Does nothing unless the thread runs.
    void AnnounceStop();

    /// Lets the thread's waits last and answer as before the announcement.
    void WithdrawStop();

    bool TestDestroy() override;

    /// As TestDestroy(), after waiting for up to `timeout` milliseconds.
    ///
    /// \param requested  When not null, set to whether exit was requested.
    virtual bool TestDestroy(unsigned int timeout, bool* requested);

    /// The thread's work.
    virtual void OnRun() = 0;

    /// Gives the thread the domain it works with; before start(). Not owned.
    void SetDom(CDom* dom) { m_dom = dom; }
    [[nodiscard]] CDom* GetDom() const { return m_dom; }

    /// Starts the thread, which calls OnRun().
    ///
    /// \param priority   0 to 100, 50 is the system's default.
    /// \param joinable   Must be true.
    /// \param stackSize  Bytes, 0 for the system's default.
    ///
    /// \return false when the system gives no thread; the reason is logged.
    bool start(unsigned int priority, bool joinable, unsigned int stackSize);

    /// Waits, without limit, until the thread has ended. Returns at once when
    /// it was never started or was joined before.
    void join();

    /// Sleeps. Ends early when the calling thread is a CRunnable that is asked
    /// to exit, awakened, or told of a stop.
    ///
    /// \return true after the time; false when cut short, and while a stop is
    ///         announced.
    static bool SleepFor(std::chrono::milliseconds time);

protected:
    ExitCode Entry() override;

private:
    ExitCode JoinOnce();

    CDom* m_dom = nullptr;
    bool m_started = false;

    struct CRequests;
    const std::unique_ptr<CRequests> m_requests;
};

} // namespace KzaCore
