// SPDX-License-Identifier: Apache-2.0
//
// How a sleeping thread is woken.
//
// Every change is made under the object's mutex, and the condition is notified
// afterwards. So the thread either has yet to look, and then sees the change,
// or it is asleep already, and then hears the notification.
//
// Three things end a wait early:
//   1. Signal() raises a count. A wait compares it with the count at its own
//      beginning, so a signal without a wait is lost, as intended.
//   2. RequestExit() sets a flag that no later call clears: the thread never
//      sleeps again.
//   3. A stop goes through three states, so that work which ignores the answer
//      of its waits is woken once and does not spin:
//        None       AnnounceStop() by another thread      -> Announced
//        Announced  HearStop() by the thread, at the end
//                   of the wait that was cut short        -> Heard
//        Announced, Heard   WithdrawStop() by any thread  -> None
//      HearStop() answers true in the last two, SleepFor() false.

#include "process/WakeUp.h"

#include <algorithm>

namespace KzaCore
{

const std::shared_ptr<CWakeUp>& CWakeUp::Current()
{
    thread_local const auto s_current = std::make_shared<CWakeUp>();
    return s_current;
}

void CWakeUp::Notify()
{
    // The change is the caller's own, made before this call. With the lock
    // taken once in between, the rule above holds for it, too.
    {
        const CLock lock(m_mutex);
    }
    m_condition.notify_all();
}

void CWakeUp::Signal()
{
    {
        const CLock lock(m_mutex);
        ++m_signals;
    }
    m_condition.notify_all();
}

void CWakeUp::RequestExit()
{
    {
        const CLock lock(m_mutex);
        m_exitRequested = true;
    }
    m_condition.notify_all();
}

void CWakeUp::AnnounceStop()
{
    {
        const CLock lock(m_mutex);
        if (m_stop == EStop::None)
            m_stop = EStop::Announced;
    }
    m_condition.notify_all();
}

void CWakeUp::WithdrawStop()
{
    const CLock lock(m_mutex);
    m_stop = EStop::None;
}

bool CWakeUp::IsStopAnnounced() const
{
    const CLock lock(m_mutex);
    return m_stop != EStop::None;
}

bool CWakeUp::HearStop()
{
    const CLock lock(m_mutex);
    if (m_stop == EStop::Announced)
        m_stop = EStop::Heard;
    return m_stop != EStop::None;
}

bool CWakeUp::SleepFor(std::chrono::milliseconds time)
{
    const bool wasCut = WaitFor(time, [] { return false; });
    const bool isToStop = HearStop();
    return !wasCut && !isToStop;
}

std::chrono::steady_clock::time_point CWakeUp::Deadline(
    std::chrono::milliseconds time)
{
    // Far enough for "for ever", near enough for the clock's own arithmetic.
    constexpr std::chrono::hours kLongest{24 * 365 * 10};
    return std::chrono::steady_clock::now() +
           std::min<std::chrono::milliseconds>(time, kLongest);
}

} // namespace KzaCore
