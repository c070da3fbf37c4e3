// SPDX-License-Identifier: Apache-2.0

#include "MainLoop.h"

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/init.h>

#include <chrono>
#include <memory>
#include <thread>

namespace
{

// Widens the time between the loop's mark that it shall exit and the end of
// its wake-up, in which the framework's own loop would be freed.
class CSlowLoop : public CMainLoop
{
public:
    using CMainLoop::CMainLoop;

    void WakeUp() override
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ++m_wakeUps;
        CMainLoop::WakeUp();
    }

    int m_wakeUps = 0;
};

CMainLoop* AwaitEntered(const std::atomic<CMainLoop*>& entered)
{
    CMainLoop* loop = nullptr;
    while ((loop = entered.load()) == nullptr)
        std::this_thread::yield();
    return loop;
}

TEST(MainLoop, IsThereOnlyOnceEntered)
{
    const wxInitializer framework;
    std::atomic<CMainLoop*> entered{nullptr};
    CMainLoop loop(entered);
    EXPECT_EQ(entered.load(), nullptr);
    std::thread script([&entered] { AwaitEntered(entered)->Exit(7); });
    EXPECT_EQ(loop.Run(), 7);
    script.join();
}

TEST(MainLoop, OutlivesTheThreadThatEndsIt)
{
    const wxInitializer framework;
    for (int round = 0; round < 20; ++round)
    {
        std::atomic<CMainLoop*> entered{nullptr};
        auto loop = std::make_unique<CSlowLoop>(entered);
        std::thread script(
            [&entered, round]
            {
                CMainLoop* const main = AwaitEntered(entered);
                wxTheApp->QueueEvent(new wxIdleEvent);
                main->Exit(round);
            });
        EXPECT_EQ(loop->Run(), round);
        // Back here the other thread may still be in WakeUp(); the order of
        // the next two lines is what the application promises.
        script.join();
        EXPECT_GE(loop->m_wakeUps, 1);
        loop.reset();
    }
}

} // namespace
