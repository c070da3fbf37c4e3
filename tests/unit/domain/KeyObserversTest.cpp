// SPDX-License-Identifier: Apache-2.0
//
// Services follow the keys of the root domain, and of no other.

#include "domain/KeyObservers.h"

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Trace.h"

#include "support/DomPtr.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace KzaCore;
using TestSupport::CTempDir;
using TestSupport::DomPtr;
using TestSupport::NewDom;

namespace
{

// What a service of the test's own was told. Observers are for ever, so one
// serves all tests.
struct CHeard
{
    std::atomic<int> calls = 0;
    std::atomic<int> callsAtOnce = 0;
    std::atomic<bool> overlapped = false;
    std::string value; // guarded by the turns that refresh functions take
    bool hadRoot = false;
};
CHeard s_heard;

void HearCB(const CDom* root)
{
    if (++s_heard.callsAtOnce > 1)
        s_heard.overlapped = true;
    ++s_heard.calls;
    s_heard.hadRoot = root != nullptr;
    s_heard.value = root ? root->Get("test.one") + root->Get("test.two") : "";
    --s_heard.callsAtOnce;
}

constexpr std::string_view kKeys[] = {"test.one", "test.two"};
const CKeyObserver s_observer(kKeys, HearCB);

} // namespace

TEST(KeyObservers, ServiceHearsOfItsKeysAlone)
{
    const DomPtr dom = NewDom();
    const int before = s_heard.calls;
    dom->Set("test.one", "a");
    EXPECT_EQ(s_heard.value, "a");
    dom->Set("test.two", "b");
    EXPECT_EQ(s_heard.value, "ab");
    dom->Set("test.three", "c");
    dom->Remove("test.never");
    EXPECT_EQ(s_heard.calls, before + 2);
    dom->Remove("test.one");
    EXPECT_EQ(s_heard.value, "b");
    EXPECT_EQ(s_heard.calls, before + 3);
}

TEST(KeyObservers, ServiceHearsThatTheRootIsGone)
{
    DomPtr dom = NewDom();
    dom->Set("test.one", "a");
    EXPECT_TRUE(s_heard.hadRoot);
    dom.reset();
    EXPECT_FALSE(s_heard.hadRoot);
    EXPECT_EQ(s_heard.value, "");
}

TEST(KeyObservers, ServiceThatRegistersLaterReadsTheRootAtOnce)
{
    static std::string s_value;
    const DomPtr dom = NewDom();
    dom->Set("test.late", "here");
    static constexpr std::string_view kLate[] = {"test.late"};
    static const CKeyObserver s_late(
        kLate,
        [](const CDom* root) { s_value = root ? root->Get("test.late") : ""; });
    EXPECT_EQ(s_value, "here");
    dom->Set("test.late", "there");
    EXPECT_EQ(s_value, "there");
}

TEST(KeyObservers, OneRefreshRunsAtATime)
{
    const DomPtr dom = NewDom();
    const auto write = [&dom](const char* key)
    {
        for (int i = 0; i < 5000; ++i)
            dom->Set(key, std::to_string(i));
    };
    std::thread other(write, "test.one");
    write("test.two");
    other.join();
    EXPECT_FALSE(s_heard.overlapped);
    EXPECT_EQ(s_heard.value, "49994999");
}

TEST(KeyObservers, TraceFollowsBothKeys)
{
    const DomPtr dom = NewDom();
    EXPECT_FALSE(LogTraceIsEnabled("One"));
    dom->Set(DomKey::kTrace, "One");
    EXPECT_TRUE(LogTraceIsEnabled("One"));
    dom->SetWx(DomKey::kTraceMore, "Two");
    EXPECT_TRUE(LogTraceIsEnabled("One"));
    EXPECT_TRUE(LogTraceIsEnabled("Two"));
    dom->Set(DomKey::kTrace, "Three");
    EXPECT_FALSE(LogTraceIsEnabled("One"));
    dom->Remove(DomKey::kTraceMore);
    EXPECT_FALSE(LogTraceIsEnabled("Two"));
    EXPECT_TRUE(LogTraceIsEnabled("Three"));
}

TEST(KeyObservers, OnlyTheRootIsFollowed)
{
    const DomPtr root = NewDom();
    const DomPtr other = NewDom();
    other->Set(DomKey::kTrace, "One");
    EXPECT_FALSE(LogTraceIsEnabled("One"));
}

TEST(KeyObservers, EndOfTheRootSwitchesTraceOff)
{
    {
        const DomPtr root = NewDom();
        root->Set(DomKey::kTrace, "*");
        EXPECT_TRUE(LogTraceIsEnabled("One"));
    }
    EXPECT_FALSE(LogTraceIsEnabled("One"));
    const DomPtr next = NewDom();
    next->Set(DomKey::kTrace, "*");
    EXPECT_TRUE(LogTraceIsEnabled("One"));
}

// A domain made while another thread releases the root is the root itself or
// leaves that to a later one; it does not lose the place once it has it.
TEST(KeyObservers, ThereIsOneRootWhenOneIsMadeWhileAnotherIsReleased)
{
    for (int round = 0; round < 2000; ++round)
    {
        DomPtr first = NewDom();
        std::atomic<bool> isReleasing = false;
        std::thread releaser(
            [&]
            {
                isReleasing = true;
                first.reset();
            });
        while (!isReleasing)
        {
        }
        const DomPtr second = NewDom();
        releaser.join();
        const DomPtr third = NewDom();
        second->Set(DomKey::kTrace, "Second");
        const bool isSecondRoot = LogTraceIsEnabled("Second");
        third->Set(DomKey::kTrace, "Third");
        ASSERT_NE(LogTraceIsEnabled("Third"), isSecondRoot) << round;
    }
}

TEST(KeyObservers, LastOfManyWritesWins)
{
    const DomPtr dom = NewDom();
    for (int round = 0; round < 200; ++round)
    {
        std::vector<std::thread> writers;
        for (const char* const name : {"One", "Two"})
            writers.emplace_back([&dom, name]
                                 { dom->Set(DomKey::kTrace, name); });
        for (std::thread& writer : writers)
            writer.join();
        const std::string last = dom->Get(DomKey::kTrace);
        EXPECT_EQ(LogTraceIsEnabled("One"), last == "One");
        EXPECT_EQ(LogTraceIsEnabled("Two"), last == "Two");
    }
}

TEST(KeyObservers, LogFindsItsPlace)
{
    const CTempDir work;
    const DomPtr dom = NewDom();
    dom->Set(DomKey::kPathWork, work.Path());
    dom->Set(DomKey::kName, "observed");
    LogToDisk(ELogLevel::Error, "", "told by the domain");
    EXPECT_NE(TestSupport::ReadFile(work.File("log/observed.log"))
                  .find("told by the domain"),
              std::string::npos);
}
