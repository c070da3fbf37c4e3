// SPDX-License-Identifier: Apache-2.0

#include "kza_core/AgentEvent.h"

#include "kza_core/Time.h"

#include <gtest/gtest.h>
#include <wx/log.h>

#include <climits>
#include <ctime>

using KzaCore::CAgentEvent;

namespace
{

TEST(AgentEvent, IsMadeWithAllAttributesNull)
{
    const CAgentEvent event;
    EXPECT_TRUE(event.IsAttributeNull(&event.m_text));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_number));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_severity));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_time));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_timeMs));
}

TEST(AgentEvent, NullMarksAreKeptByAttribute)
{
    CAgentEvent event;
    event.SetAttributeNull(&event.m_text, false);
    event.SetAttributeNull(&event.m_text, false);
    EXPECT_FALSE(event.IsAttributeNull(&event.m_text));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_number));
    event.SetAttributeNull(&event.m_text, true);
    event.SetAttributeNull(&event.m_number, true);
    EXPECT_TRUE(event.IsAttributeNull(&event.m_text));
    EXPECT_TRUE(event.IsAttributeNull(&event.m_number));
}

TEST(AgentEvent, SeverityIsTheLevelOfTheLog)
{
    EXPECT_EQ(CAgentEvent::ToSeverity(2), 2U);
    EXPECT_EQ(CAgentEvent::ToSeverity(5), 5U);
    EXPECT_EQ(CAgentEvent::ToSeverity(0), 0U);
    EXPECT_EQ(CAgentEvent::ToSeverity(ULONG_MAX),
              static_cast<std::uint32_t>(wxLOG_Max));
}

TEST(AgentEvent, TimeIsInMilliseconds)
{
    const std::int64_t before = static_cast<std::int64_t>(time(nullptr)) * 1000;
    const std::int64_t now = KzaCore::TimeNowMillis();
    const std::int64_t after =
        (static_cast<std::int64_t>(time(nullptr)) + 1) * 1000;
    EXPECT_LE(before - 1000, now) << "time() may lag behind by a tick";
    EXPECT_LE(now, after + 1000);
}

} // namespace
