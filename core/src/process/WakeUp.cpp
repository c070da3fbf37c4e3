// SPDX-License-Identifier: Apache-2.0
//
// No wake-up is lost: every change is made under the object's mutex, and the
// condition is notified afterwards. A thread that begins to wait either sees
// the change before it sleeps, or it sleeps already and is notified.
//
// Three things end a wait early:
//   1. Signal() raises a count. A wait compares the count with its value at the
//      wait's own beginning, so a signal outside of a wait is lost, as
//      intended.
//   2. RequestExit() sets a flag that no later call clears: the thread never
//      sleeps again.
//   3. A stop goes through three states. Work which ignores the answers of its
//      waits is woken only once, and so does not spin:
//        None       AnnounceStop() by another thread      -> Announced
//        Announced  HearStop() by the thread, at the end
//                   of the wait that was cut short        -> Heard
//        Announced, Heard   WithdrawStop() by any thread  -> None
//      In the states Announced and Heard, HearStop() answers true and
//      SleepFor() answers false.

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
    // The caller has made its change before this call, without this mutex.
    // Taking the mutex once in between makes the rule above hold for it, too.
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
    // Ten years: as good as for ever, without an overflow in the clock's
    // arithmetic.
    constexpr std::chrono::hours kLongest{24 * 365 * 10};
    return std::chrono::steady_clock::now() +
           std::min<std::chrono::milliseconds>(time, kLongest);
}

} // namespace KzaCore
