// SPDX-License-Identifier: Apache-2.0

#include "service/RestartPolicy.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{

constexpr time_t kNow = 1700000000;

// A policy that has seen starts so many seconds before kNow.
CRestartPolicy After(const std::vector<int>& secondsAgo)
{
    CRestartPolicy policy;
    for (const int seconds : secondsAgo)
        policy.NoteStart(kNow - seconds);
    return policy;
}

TEST(RestartPolicy, FirstStartDoesNotWait)
{
    const CRestartPolicy::CDecision next = CRestartPolicy().BeforeStart(kNow);
    EXPECT_TRUE(next.allowed);
    EXPECT_EQ(next.recentStarts, 0);
    EXPECT_EQ(next.delay.count(), 0);
}

TEST(RestartPolicy, EachRecentStartDoublesTheDelay)
{
    CRestartPolicy policy;
    const int delays[] = {0, 1000, 2000, 4000, 8000, 16000, 32000, 64000};
    int recent = 0;
    for (const int delay : delays)
    {
        SCOPED_TRACE(recent);
        const CRestartPolicy::CDecision next = policy.BeforeStart(kNow);
        EXPECT_TRUE(next.allowed);
        EXPECT_EQ(next.recentStarts, recent);
        EXPECT_EQ(next.delay.count(), delay);
        policy.NoteStart(kNow);
        ++recent;
    }
}

TEST(RestartPolicy, NinthStartWithinThePeriodIsRefused)
{
    const CRestartPolicy::CDecision next =
        After({511, 400, 300, 200, 100, 50, 20, 10}).BeforeStart(kNow);
    EXPECT_FALSE(next.allowed);
    EXPECT_EQ(next.recentStarts, 8);
    EXPECT_EQ(next.delay.count(), 0);
}

TEST(RestartPolicy, StartIsRecentUntilThePeriodIsFull)
{
    EXPECT_EQ(After({511}).BeforeStart(kNow).recentStarts, 1);
    EXPECT_EQ(After({512}).BeforeStart(kNow).recentStarts, 0);
    EXPECT_EQ(After({513}).BeforeStart(kNow).recentStarts, 0);
    EXPECT_TRUE(After({512, 7, 6, 5, 4, 3, 2, 1}).BeforeStart(kNow).allowed);
}

TEST(RestartPolicy, RingForgetsTheOldestOfNine)
{
    // The ninth takes the place of the first; seven of the others are old.
    CRestartPolicy policy = After({100, 900, 900, 900, 900, 900, 900, 900});
    EXPECT_EQ(policy.BeforeStart(kNow).recentStarts, 1);
    policy.NoteStart(kNow - 600);
    EXPECT_EQ(policy.BeforeStart(kNow).recentStarts, 0);
}

TEST(RestartPolicy, RingGoesRoundManyTimes)
{
    CRestartPolicy policy;
    for (int i = 0; i < 1000; ++i)
    {
        const time_t now = kNow + i * 128;
        const CRestartPolicy::CDecision next = policy.BeforeStart(now);
        ASSERT_TRUE(next.allowed) << i;
        // 128, 256 and 384 seconds ago; 512 is no longer recent.
        ASSERT_EQ(next.recentStarts, std::min(i, 3)) << i;
        policy.NoteStart(now);
    }
}

// A worker that dies at once: each start is noted with the time before its
// delay, so the delays eat into the period that later counts look at.
TEST(RestartPolicy, LongDelaysShortenThePeriod)
{
    CRestartPolicy policy;
    time_t now = kNow;
    for (int start = 0; start < 8; ++start)
    {
        const CRestartPolicy::CDecision next = policy.BeforeStart(now);
        ASSERT_TRUE(next.allowed);
        policy.NoteStart(now);
        now += next.delay.count() / 1000;
    }
    // 127 seconds of delays have passed, but the eighth start counts from
    // before its own 64: it is forgotten 512 seconds after that moment.
    EXPECT_EQ(now, kNow + 127);
    EXPECT_FALSE(policy.BeforeStart(kNow + 511).allowed);
    EXPECT_TRUE(policy.BeforeStart(kNow + 512).allowed);
    EXPECT_EQ(policy.BeforeStart(kNow + 63 + 511).recentStarts, 1);
    EXPECT_EQ(policy.BeforeStart(kNow + 63 + 512).recentStarts, 0);
}

TEST(RestartPolicy, ClockSetBackKeepsStartsRecent)
{
    EXPECT_EQ(After({-3600}).BeforeStart(kNow).recentStarts, 1);
}

TEST(RestartPolicy, CutOffIsA32BitNumber)
{
    // The last second whose cut-off fits. One later it wraps to a negative
    // number, and slots that never saw a start count as recent.
    constexpr time_t last = INT32_MAX + time_t{512};
    EXPECT_EQ(CRestartPolicy().BeforeStart(last).recentStarts, 0);
    EXPECT_EQ(CRestartPolicy().BeforeStart(last + 1).recentStarts, 8);
    EXPECT_FALSE(CRestartPolicy().BeforeStart(last + 1).allowed);

    CRestartPolicy policy;
    policy.NoteStart(last - 511);
    EXPECT_EQ(policy.BeforeStart(last).recentStarts, 1);
    policy.NoteStart(last - 512);
    EXPECT_EQ(policy.BeforeStart(last).recentStarts, 1);
}

TEST(RestartPolicy, ClockNearTheEpochCountsEmptySlots)
{
    // Seconds 0 to 511 have a cut-off below zero, the empty slots' time.
    EXPECT_FALSE(CRestartPolicy().BeforeStart(511).allowed);
    EXPECT_TRUE(CRestartPolicy().BeforeStart(512).allowed);
}

} // namespace
