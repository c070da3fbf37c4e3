// SPDX-License-Identifier: Apache-2.0
//
// The script thread ends the main thread's loop. The steps of both threads:
//
//   1. The main thread starts the script thread and goes on to its loop. The
//      script thread waits for step 2, for a limited time, before it begins.
//   2. Main thread, first turn of the loop: the framework has just cleared the
//      loop's exit flag, so an exit can be asked for from now on. The loop is
//      published in m_entered and stays there.
//   3. Main thread, each time before it waits for events: m_idle becomes true.
//      A tool ends the process from its script thread after this, while the
//      main thread is asleep and touches no static object of the framework.
//   4. Script thread, at the end of the script: it reads m_entered, queues an
//      idle event, and asks the loop that it read to exit. The pointer is null
//      when the main thread was delayed for longer than step 1 waits; then the
//      loop is not asked to exit and the run goes on.
//   5. Main thread: the loop returns. The script thread may still be in the
//      loop's wake-up, so the loop is freed only after the script thread has
//      been joined.

#include "script/MainLoop.h"

bool CMainLoopProgress::AwaitEntered(std::chrono::milliseconds limit)
{
    KzaCore::CLock lock(m_mutex);
    return m_condition.wait_for(lock.ForWait(), limit,
                                [this] { return Entered() != nullptr; });
}

bool CMainLoopProgress::AwaitIdle(std::chrono::milliseconds limit)
{
    KzaCore::CLock lock(m_mutex);
    return m_condition.wait_for(lock.ForWait(), limit,
                                [this]() KZA_REQUIRES(m_mutex)
                                { return m_idle; });
}

void CMainLoopProgress::NoteEntered(CMainLoop* loop)
{
    if (Entered() != nullptr)
        return; // called in each turn of the loop
    {
        const KzaCore::CLock lock(m_mutex);
        m_entered.store(loop, std::memory_order_release);
    }
    m_condition.notify_all();
}

void CMainLoopProgress::NoteIdle()
{
    {
        const KzaCore::CLock lock(m_mutex);
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

    // The framework clears its exit flag when the loop starts, before this
    // call; a request to exit before that would be lost.
    m_progress.NoteEntered(this);
}

bool CMainLoop::Dispatch()
{
    m_progress.NoteIdle();
    return wxConsoleEventLoop::Dispatch();
}
