// SPDX-License-Identifier: Apache-2.0
//
// Log and trace follow the keys of the root domain, and of no other.

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Trace.h"

#include "support/DomPtr.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace KzaCore;
using TestSupport::CTempDir;
using TestSupport::DomPtr;
using TestSupport::NewDom;

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
