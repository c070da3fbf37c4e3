// SPDX-License-Identifier: Apache-2.0

#include "script/MainLoop.h"

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

CMainLoop* AwaitEntered(const CMainLoopProgress& progress)
{
    CMainLoop* loop = nullptr;
    while ((loop = progress.Entered()) == nullptr)
        std::this_thread::yield();
    return loop;
}

TEST(MainLoop, IsThereOnlyOnceEntered)
{
    const wxInitializer framework;
    CMainLoopProgress progress;
    CMainLoop loop(progress);
    EXPECT_EQ(progress.Entered(), nullptr);
    std::thread script([&progress] { AwaitEntered(progress)->Exit(7); });
    EXPECT_EQ(loop.Run(), 7);
    script.join();
}

TEST(MainLoop, IsWaitedForUntilEntered)
{
    const wxInitializer framework;
    CMainLoopProgress progress;
    CMainLoop loop(progress);
    EXPECT_FALSE(progress.AwaitEntered(std::chrono::milliseconds(1)));
    bool isEntered = false;
    std::thread script(
        [&]
        {
            isEntered = progress.AwaitEntered(std::chrono::minutes(1));
            progress.Entered()->Exit(0);
        });
    EXPECT_EQ(loop.Run(), 0);
    script.join();
    EXPECT_TRUE(isEntered);
    EXPECT_TRUE(progress.AwaitEntered(std::chrono::milliseconds(0)));
}

TEST(MainLoop, IsIdleOnceItWaitsForEvents)
{
    const wxInitializer framework;
    CMainLoopProgress progress;
    CMainLoop loop(progress);
    EXPECT_FALSE(progress.AwaitIdle(std::chrono::milliseconds(0)));
    bool wasIdle = false;
    std::thread script(
        [&]
        {
            wasIdle = progress.AwaitIdle(std::chrono::minutes(1));
            progress.Entered()->Exit(0);
        });
    EXPECT_EQ(loop.Run(), 0);
    script.join();
    EXPECT_TRUE(wasIdle);
}

TEST(MainLoop, OutlivesTheThreadThatEndsIt)
{
    const wxInitializer framework;
    for (int round = 0; round < 20; ++round)
    {
        CMainLoopProgress progress;
        auto loop = std::make_unique<CSlowLoop>(progress);
        std::thread script(
            [&progress, round]
            {
                CMainLoop* const main = AwaitEntered(progress);
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
