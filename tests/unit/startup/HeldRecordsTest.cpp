// SPDX-License-Identifier: Apache-2.0

#include "startup/HeldRecords.h"

#include "support/CollectedLog.h"

#include <gtest/gtest.h>

using namespace TestSupport;

TEST(HeldRecords, ReachTheTargetFromBeforeInOrder)
{
    const CCollectedLog log;
    {
        const CHeldRecords held;
        wxLogWarning("first");
        wxLogError("second");
        EXPECT_TRUE(log.m_texts.empty());
    }
    EXPECT_EQ(log.m_texts, (std::vector<wxString>{"first", "second"}));
    EXPECT_EQ(log.m_levels,
              (std::vector<wxLogLevel>{wxLOG_Warning, wxLOG_Error}));
    wxLogMessage("third");
    EXPECT_EQ(log.m_texts.size(), 3U);
}
