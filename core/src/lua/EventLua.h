// SPDX-License-Identifier: Apache-2.0
//
// The methods of the Lua class "SLB.Dom" for agent events. DomClass.cpp adds
// them to the class.
//
// Threads: the one that owns the Lua state.

#pragma once

#include "events/StoredEvent.h"

#include <vector>

struct lua_State;

namespace KzaCore
{

/// `dom:AgentEventWrite{text=, number=, severity=}`: stores an event that
/// happens now. Returns its id, 0 when it is only in the log.
int LuaAgentEventWrite(lua_State* L);

/// `dom:AgentEvents([after_id [, limit]])`: an array of tables {id, number,
/// severity, time, time_ms, text}, oldest first; nil and the reason when the
/// events cannot be read.
int LuaAgentEvents(lua_State* L);

/// Pushes events as LuaAgentEvents() returns them.
void PushEvents(lua_State* L, const std::vector<CStoredEvent>& events);

} // namespace KzaCore
