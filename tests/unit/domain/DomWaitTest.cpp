// SPDX-License-Identifier: Apache-2.0
//
// Waiting for a change of a key.

#include "kza_core/Dom.h"
#include "kza_core/Runnable.h"

#include "process/WakeUp.h"
#include "support/DomPtr.h"

#include <gtest/gtest.h>
#include <wx/init.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

using namespace KzaCore;
using std::chrono::milliseconds;
using TestSupport::DomPtr;
using TestSupport::NewDom;

namespace
{

constexpr milliseconds kForEver = milliseconds::max();
constexpr milliseconds kShort{20};

// A thread of the program that waits for "k" for as long as it takes.
class CWaitingThread final : public CRunnable
{
public:
    explicit CWaitingThread(CDom& dom) : CRunnable(false, -1, false)
    {
        SetDom(&dom);
        seen = dom.Generation("k");
        start(50, true, 0);
    }

    void OnRun() override
    {
        changed = GetDom()->Wait("k", kForEver, seen);
        hasEnded = true;
    }

    std::uint64_t seen = 0;
    bool changed = false;
    std::atomic<bool> hasEnded{false};
};

} // namespace

TEST(DomWait, TimesOutWithoutAChange)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    const std::uint64_t before = seen;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(dom->Wait("k", kShort, seen));
    EXPECT_GE(std::chrono::steady_clock::now() - start, kShort);
    EXPECT_EQ(seen, before);
}

TEST(DomWait, ZeroAndLessOnlyLook)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    for (const milliseconds timeout : {milliseconds(0), milliseconds::min()})
    {
        EXPECT_FALSE(dom->Wait("k", timeout, seen));
        dom->Set("k", true);
        EXPECT_TRUE(dom->Wait("k", timeout, seen));
        EXPECT_FALSE(dom->Wait("k", timeout, seen));
    }
}

TEST(DomWait, ChangeBetweenTwoWaitsIsNotMissed)
{
    const std::vector<std::pair<const char*, std::function<void(CDom&)>>>
        changes = {
            {"new value", [](CDom& dom) { dom.Set("k", "v"); }},
            {"same value", [](CDom& dom) { dom.Set("k", "v"); }},
            {"bool", [](CDom& dom) { dom.Set("k", true); }},
            {"same bool", [](CDom& dom) { dom.Set("k", true); }},
            {"integer", [](CDom& dom) { dom.Set("k", 1LL); }},
            {"there and back",
             [](CDom& dom)
             {
                 dom.Set("k", 2LL);
                 dom.Set("k", 1LL);
             }},
            {"removal", [](CDom& dom) { dom.Remove("k"); }},
        };
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    for (const auto& [name, change] : changes)
    {
        SCOPED_TRACE(name);
        change(*dom);
        EXPECT_TRUE(dom->Wait("k", kForEver, seen));
        EXPECT_FALSE(dom->Wait("k", milliseconds(0), seen));
    }
}

TEST(DomWait, RemovalOfAnUnsetKeyIsNoChange)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    dom->Remove("k");
    EXPECT_FALSE(dom->Wait("k", milliseconds(0), seen));
}

TEST(DomWait, OtherKeysDoNotWake)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    dom->Set("kk", true);
    dom->Set("", true);
    EXPECT_FALSE(dom->Wait("k", milliseconds(0), seen));
}

TEST(DomWait, ForgottenKeysAreRememberedOnceWaitedFor)
{
    const DomPtr dom = NewDom();
    dom->Set("k", true);
    std::uint64_t seen = dom->Generation("k");
    dom->Remove("k");
    // Enough to have the index made anew, without removed keys.
    for (int i = 0; i < 10000; ++i)
    {
        dom->Set("other." + std::to_string(i), true);
        dom->Remove("other." + std::to_string(i));
    }
    EXPECT_TRUE(dom->Wait("k", milliseconds(0), seen));
    EXPECT_FALSE(dom->Wait("k", milliseconds(0), seen));
}

TEST(DomWait, ChangeWakesEveryWaiter)
{
    const wxInitializer framework; // for its threads
    const DomPtr dom = NewDom();
    CWaitingThread first(*dom);
    CWaitingThread second(*dom);
    dom->Set("k", true);
    first.join();
    second.join();
    EXPECT_TRUE(first.changed);
    EXPECT_TRUE(second.changed);
    EXPECT_EQ(first.seen, dom->Generation("k"));
}

TEST(DomWait, EveryOneOfManyChangesIsHeard)
{
    const DomPtr dom = NewDom();
    constexpr int kRounds = 2000;
    std::uint64_t seenPing = dom->Generation("ping");
    std::uint64_t seenPong = dom->Generation("pong");
    std::thread other(
        [&]
        {
            for (int i = 0; i < kRounds; ++i)
            {
                EXPECT_TRUE(dom->Wait("ping", kForEver, seenPing));
                dom->Set("pong", true);
            }
        });
    for (int i = 0; i < kRounds; ++i)
    {
        dom->Set("ping", true);
        EXPECT_TRUE(dom->Wait("pong", kForEver, seenPong));
    }
    other.join();
}

TEST(DomWait, WokenReaderSeesTheValue)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    std::thread writer([&] { dom->Set("k", "v"); });
    EXPECT_TRUE(dom->Wait("k", kForEver, seen));
    EXPECT_EQ(dom->Get("k"), "v");
    writer.join();
}

TEST(DomWait, ExitRequestEndsTheWait)
{
    const wxInitializer framework; // for its threads
    const DomPtr dom = NewDom();
    CWaitingThread thread(*dom);
    thread.requestExit();
    thread.join();
    EXPECT_FALSE(thread.changed);
}

TEST(DomWait, AwakeningEndsTheWait)
{
    const wxInitializer framework; // for its threads
    const DomPtr dom = NewDom();
    CWaitingThread thread(*dom);
    // Once may be before the thread waits, which does nothing.
    while (!thread.hasEnded)
    {
        thread.Awaken();
        std::this_thread::yield();
    }
    thread.join();
    EXPECT_FALSE(thread.changed);
}

TEST(DomWait, ChangeBeforeTheExitRequestIsReported)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    std::thread(
        [&]
        {
            CWakeUp::Current()->RequestExit();
            dom->Set("k", true);
            EXPECT_TRUE(dom->Wait("k", kForEver, seen));
            EXPECT_FALSE(dom->Wait("k", kForEver, seen));
        })
        .join();
}

TEST(DomWait, AnnouncedStopCutsOneWaitAndAnswersFalse)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    std::thread(
        [&]
        {
            const auto self = CWakeUp::Current();
            self->AnnounceStop();
            EXPECT_FALSE(dom->Wait("k", kForEver, seen));

            const auto start = std::chrono::steady_clock::now();
            EXPECT_FALSE(dom->Wait("k", kShort, seen));
            EXPECT_GE(std::chrono::steady_clock::now() - start, kShort);

            const std::uint64_t before = seen;
            dom->Set("k", true);
            EXPECT_FALSE(dom->Wait("k", kForEver, seen));
            EXPECT_NE(seen, before) << "the caller cannot see the change";

            self->WithdrawStop();
            dom->Set("k", true);
            EXPECT_TRUE(dom->Wait("k", kForEver, seen));
        })
        .join();
}

TEST(DomWait, WaitThatOnlyLooksHearsTheStop)
{
    const DomPtr dom = NewDom();
    std::uint64_t seen = dom->Generation("k");
    std::thread(
        [&]
        {
            CWakeUp::Current()->AnnounceStop();
            EXPECT_FALSE(dom->Wait("k", milliseconds(0), seen));
            const auto start = std::chrono::steady_clock::now();
            EXPECT_FALSE(CRunnable::SleepFor(kShort));
            EXPECT_GE(std::chrono::steady_clock::now() - start, kShort);
        })
        .join();
}
