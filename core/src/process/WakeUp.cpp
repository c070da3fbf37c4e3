// SPDX-License-Identifier: Apache-2.0

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
    // With the lock taken once in between, the thread either has yet to look
    // or is already asleep and hears the call.
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
    }
    m_condition.notify_all();
}

void CWakeUp::Signal()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_signals;
    }
    m_condition.notify_all();
}

void CWakeUp::RequestExit()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_exitRequested = true;
    }
    m_condition.notify_all();
}

void CWakeUp::WithdrawExit()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_exitRequested = false;
}

bool CWakeUp::ExitRequested() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_exitRequested;
}

bool CWakeUp::SleepFor(std::chrono::milliseconds time)
{
    return !WaitFor(time, [] { return false; });
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
