// SPDX-License-Identifier: Apache-2.0

#include "kza_core/AgentEvent.h"

#include <wx/log.h>

#include <algorithm>

namespace KzaCore
{

CAgentEvent::CAgentEvent() = default;

std::uint32_t CAgentEvent::ToSeverity(unsigned long level)
{
    constexpr unsigned long kHighest = wxLOG_Max;
    return static_cast<std::uint32_t>(std::min(level, kHighest));
}

} // namespace KzaCore
