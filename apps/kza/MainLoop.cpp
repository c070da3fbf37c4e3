// SPDX-License-Identifier: Apache-2.0

#include "MainLoop.h"

CMainLoop::CMainLoop(std::atomic<CMainLoop*>& entered) : m_entered(entered)
{
}

void CMainLoop::OnNextIteration()
{
    wxConsoleEventLoop::OnNextIteration();

    // Not before: the framework clears its exit flag when the loop starts, so
    // an exit asked for earlier would be lost.
    m_entered.store(this, std::memory_order_release);
}
