// SPDX-License-Identifier: Apache-2.0

#include "service/StopReminder.h"

#include <gtest/gtest.h>

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(StopReminder, IsDueAfterTenSecondsAndEachDoubling)
{
    CStopReminder reminder;
    for (const int due : {10, 20, 40, 80, 160})
    {
        SCOPED_TRACE(due);
        EXPECT_EQ(reminder.Next(), seconds(due));
        EXPECT_EQ(reminder.Take(seconds(due) - milliseconds(1)), seconds(0));
        EXPECT_EQ(reminder.Take(seconds(due)), seconds(due));
        EXPECT_EQ(reminder.Take(seconds(due)), seconds(0)) << "taken twice";
    }
}

TEST(StopReminder, OnesThatWereMissedAreLeftOut)
{
    CStopReminder reminder;
    EXPECT_EQ(reminder.Take(seconds(79)), seconds(40));
    EXPECT_EQ(reminder.Next(), seconds(80));
}

TEST(StopReminder, GoesOnForYears)
{
    CStopReminder reminder;
    const seconds year = std::chrono::hours(24 * 365);
    EXPECT_GT(reminder.Take(year), year / 2);
    EXPECT_GT(reminder.Next(), year);
}
