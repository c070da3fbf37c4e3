// SPDX-License-Identifier: Apache-2.0

#include "script/MainLoop.h"

bool CMainLoopProgress::AwaitIdle(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_condition.wait_for(lock, limit, [this] { return m_idle; });
}

void CMainLoopProgress::NoteEntered(CMainLoop* loop)
{
    m_entered.store(loop, std::memory_order_release);
}

void CMainLoopProgress::NoteIdle()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_idle = true;
    }
    m_condition.notify_all();
}

CMainLoop::CMainLoop(CMainLoopProgress& progress) : m_progress(progress)
{
}

void CMainLoop::OnNextIteration()
{
    wxConsoleEventLoop::OnNextIteration();

    // Not before: the framework clears its exit flag when the loop starts, so
    // an exit asked for earlier would be lost.
    m_progress.NoteEntered(this);
}

bool CMainLoop::Dispatch()
{
    m_progress.NoteIdle();
    return wxConsoleEventLoop::Dispatch();
}
