// SPDX-License-Identifier: Apache-2.0

#include "service/RestartPolicy.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

int CRestartPolicy::CountRecentStarts(time_t now) const
{
    // The period's beginning is a 32-bit number, the times are 64-bit ones.
    const auto cutOff = static_cast<std::int32_t>(now - kPeriodSeconds);
    return static_cast<int>(std::count_if(m_starts.begin(), m_starts.end(),
                                          [cutOff](time_t start)
                                          { return start > cutOff; }));
}

CRestartPolicy::CDecision CRestartPolicy::BeforeStart(time_t now) const
{
    CDecision decision;
    decision.recentStarts = CountRecentStarts(now);
    decision.allowed = decision.recentStarts < kMaxRecentStarts;
    if (decision.allowed && decision.recentStarts > 0)
    {
        const double ms =
            std::pow(2.0, decision.recentStarts - 1) * kBaseDelayMs;
        decision.delay = std::chrono::milliseconds(static_cast<int>(ms));
    }
    return decision;
}

void CRestartPolicy::NoteStart(time_t now)
{
    m_starts[m_next] = now;
    m_next = (m_next + 1) % m_starts.size();
}
