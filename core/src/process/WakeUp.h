// SPDX-License-Identifier: Apache-2.0
//
// Waits that other threads can end: one object for each thread, through which
// other threads wake it, ask it to exit, or announce that it is to stop.
//
// Threads: SleepFor(), WaitFor() and HearStop() belong to the thread whose
// object it is. The rest may be called from any thread, but not from a signal
// handler.

#pragma once

#include "base/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>

namespace KzaCore
{

class CWakeUp
{
public:
    /// The calling thread's object. Another thread that is to wake this one
    /// later holds a copy of the pointer.
    [[nodiscard]] static const std::shared_ptr<CWakeUp>& Current();

    CWakeUp() = default;

    CWakeUp(const CWakeUp&) = delete;
    CWakeUp& operator=(const CWakeUp&) = delete;

    // For other threads.

    /// Makes a waiting thread call the predicate of its WaitFor() again.
    void Notify();

    /// Ends the thread's present SleepFor() or WaitFor(); does nothing while
    /// the thread is in neither.
    void Signal();

    /// Ends every SleepFor() and WaitFor() at once, for good.
    void RequestExit();

    /// Ends the thread's present SleepFor() or WaitFor(), else the next one.
    /// Those after it last their time. Until withdrawn, HearStop() answers true
    /// and SleepFor() answers false.
    void AnnounceStop();
    void WithdrawStop();
    [[nodiscard]] bool IsStopAnnounced() const;

    // For the thread itself.

    /// \return true after the time; false when cut short or while a stop is
    ///         announced.
    bool SleepFor(std::chrono::milliseconds time);

    /// Waits until `hasCome` answers true, the time is up, or another thread
    /// cuts the wait short. The caller asks HearStop() afterwards.
    ///
    /// \param hasCome  Asked on this thread, under the lock of this object, at
    ///                 once and after each Notify().
    ///
    /// \return false when the time was up.
    template <typename THasCome>
    bool WaitFor(std::chrono::milliseconds time, THasCome hasCome)
    {
        const auto deadline = Deadline(time);
        CLock lock(m_mutex);
        const auto signals = m_signals;
        return m_condition.wait_until(lock.ForWait(), deadline,
                                      [&]() KZA_REQUIRES(m_mutex)
                                      {
                                          return m_exitRequested ||
                                                 m_stop == EStop::Announced ||
                                                 m_signals != signals ||
                                                 hasCome();
                                      });
    }

    /// Whether a stop is announced. From this call on, the announcement cuts no
    /// wait any more.
    bool HearStop();

private:
    enum class EStop
    {
        None,
        Announced, // the present wait or the next one is to be cut short
        Heard      // a wait has ended since
    };

    static std::chrono::steady_clock::time_point Deadline(
        std::chrono::milliseconds time);

    mutable CMutex m_mutex;
    std::condition_variable m_condition;
    std::uint64_t m_signals KZA_GUARDED_BY(m_mutex) = 0;
    bool m_exitRequested KZA_GUARDED_BY(m_mutex) = false;
    EStop m_stop KZA_GUARDED_BY(m_mutex) = EStop::None;
};

} // namespace KzaCore
