// SPDX-License-Identifier: Apache-2.0
//
// What a thread sleeps on: one object per thread, through which others wake it
// or ask it to exit.
//
// Threads: SleepFor() and WaitFor() belong to the thread whose object it is,
// the rest may be called from any, not from a signal handler.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace KzaCore
{

class CWakeUp
{
public:
    /// The calling thread's. Whoever is to wake the thread later holds a copy
    /// of the pointer.
    [[nodiscard]] static const std::shared_ptr<CWakeUp>& Current();

    CWakeUp() = default;

    CWakeUp(const CWakeUp&) = delete;
    CWakeUp& operator=(const CWakeUp&) = delete;

    // For others.

    /// Lets the thread look again whether what it waits for has come.
    void Notify();

    /// Ends the thread's present SleepFor() or WaitFor(); without one, does
    /// nothing.
    void Signal();

    /// Ends every SleepFor() and WaitFor() at once, until withdrawn.
    void RequestExit();
    void WithdrawExit();
    [[nodiscard]] bool ExitRequested() const;

    // For the thread itself.

    /// \return true after the time, false when cut short.
    bool SleepFor(std::chrono::milliseconds time);

    /// Waits until `hasCome` answers true, the time is up, or somebody cut it
    /// short.
    ///
    /// \param hasCome  Asked on this thread, under the lock of this object, at
    ///                 once and after each Notify().
    ///
    /// \return false when the time was up.
    template <typename THasCome>
    bool WaitFor(std::chrono::milliseconds time, THasCome hasCome)
    {
        const auto deadline = Deadline(time);
        std::unique_lock<std::mutex> lock(m_mutex);
        const auto signals = m_signals;
        return m_condition.wait_until(
            lock, deadline,
            [&]
            { return m_exitRequested || m_signals != signals || hasCome(); });
    }

private:
    static std::chrono::steady_clock::time_point Deadline(
        std::chrono::milliseconds time);

    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_condition;
    std::uint64_t m_signals = 0;
    bool m_exitRequested = false;
};

} // namespace KzaCore
