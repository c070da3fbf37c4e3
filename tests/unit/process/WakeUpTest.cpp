// SPDX-License-Identifier: Apache-2.0
//
// Sleeping threads are woken by what concerns them, and by nothing else.

#include "process/WakeUp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

using namespace KzaCore;
using std::chrono::milliseconds;

namespace
{

constexpr milliseconds kForEver = milliseconds::max();
constexpr milliseconds kShort{20};

// Whether a thread's sleep without end is cut short by a call from outside. The
// call is repeated, as the first may come before the thread sleeps.
template <typename TCall>
bool EndsSleep(TCall call)
{
    std::promise<std::shared_ptr<CWakeUp>> started;
    std::atomic<bool> hasEnded{false};
    bool wholeTime = true;
    std::thread sleeper(
        [&]
        {
            started.set_value(CWakeUp::Current());
            wholeTime = CWakeUp::Current()->SleepFor(kForEver);
            hasEnded = true;
        });
    const std::shared_ptr<CWakeUp> wakeUp = started.get_future().get();
    while (!hasEnded)
    {
        call(*wakeUp);
        std::this_thread::yield();
    }
    sleeper.join();
    return !wholeTime;
}

} // namespace

TEST(WakeUp, SleepLastsItsTime)
{
    CWakeUp wakeUp;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(wakeUp.SleepFor(kShort));
    EXPECT_GE(std::chrono::steady_clock::now() - start, kShort);
}

TEST(WakeUp, SignalEndsASleep)
{
    EXPECT_TRUE(EndsSleep([](CWakeUp& wakeUp) { wakeUp.Signal(); }));
}

TEST(WakeUp, SignalWithoutASleepDoesNothing)
{
    CWakeUp wakeUp;
    wakeUp.Signal();
    EXPECT_TRUE(wakeUp.SleepFor(kShort));
}

TEST(WakeUp, ExitRequestEndsEverySleep)
{
    EXPECT_TRUE(EndsSleep([](CWakeUp& wakeUp) { wakeUp.RequestExit(); }));

    CWakeUp wakeUp;
    wakeUp.RequestExit();
    EXPECT_FALSE(wakeUp.SleepFor(kForEver));
    EXPECT_FALSE(wakeUp.SleepFor(kForEver));
    EXPECT_FALSE(wakeUp.SleepFor(milliseconds(0)));
}

TEST(WakeUp, AnnouncedStopEndsASleep)
{
    EXPECT_TRUE(EndsSleep([](CWakeUp& wakeUp) { wakeUp.AnnounceStop(); }));
}

TEST(WakeUp, AnnouncedStopCutsTheNextSleepAndNoLaterOne)
{
    CWakeUp wakeUp;
    wakeUp.AnnounceStop();
    EXPECT_FALSE(wakeUp.SleepFor(kForEver));

    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(wakeUp.SleepFor(kShort));
    wakeUp.AnnounceStop(); // a second time tells nothing new
    EXPECT_FALSE(wakeUp.SleepFor(kShort));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * kShort);
}

TEST(WakeUp, StopIsHeardAtTheEndOfAnyWait)
{
    CWakeUp wakeUp;
    EXPECT_FALSE(wakeUp.HearStop());
    wakeUp.AnnounceStop();
    EXPECT_TRUE(wakeUp.IsStopAnnounced());
    EXPECT_TRUE(wakeUp.HearStop());
    EXPECT_TRUE(wakeUp.HearStop());
    EXPECT_FALSE(wakeUp.WaitFor(kShort, [] { return false; }));
}

TEST(WakeUp, SleepsLastAndAnswerAsBeforeOnceTheStopIsWithdrawn)
{
    CWakeUp wakeUp;
    for (const bool isHeard : {false, true})
    {
        wakeUp.AnnounceStop();
        EXPECT_TRUE(!isHeard || wakeUp.HearStop());
        wakeUp.WithdrawStop();
        EXPECT_FALSE(wakeUp.IsStopAnnounced());
        EXPECT_FALSE(wakeUp.HearStop());
        EXPECT_TRUE(wakeUp.SleepFor(kShort));
    }
}

TEST(WakeUp, NotifyLetsTheThreadLookAgain)
{
    CWakeUp wakeUp;
    std::atomic<int> looks{0};
    std::atomic<bool> come{false};
    std::thread waiter(
        [&]
        {
            EXPECT_TRUE(wakeUp.WaitFor(kForEver,
                                       [&]
                                       {
                                           ++looks;
                                           return come.load();
                                       }));
        });
    while (looks < 1)
        std::this_thread::yield();
    wakeUp.Notify();
    while (looks < 2)
        std::this_thread::yield();
    come = true;
    wakeUp.Notify();
    waiter.join();
    EXPECT_GE(looks, 3);
}

TEST(WakeUp, WaitAnswersFalseAfterTheTime)
{
    CWakeUp wakeUp;
    EXPECT_FALSE(wakeUp.WaitFor(kShort, [] { return false; }));
    EXPECT_FALSE(wakeUp.WaitFor(milliseconds(0), [] { return false; }));
    EXPECT_TRUE(wakeUp.WaitFor(milliseconds(0), [] { return true; }));
}

TEST(WakeUp, EachThreadHasItsOwn)
{
    const std::shared_ptr<CWakeUp> mine = CWakeUp::Current();
    EXPECT_EQ(CWakeUp::Current(), mine);
    std::thread([&] { EXPECT_NE(CWakeUp::Current(), mine); }).join();
}
