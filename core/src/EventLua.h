// SPDX-License-Identifier: Apache-2.0
//
// The agent events as methods of the Lua class "SLB.Dom".
//
// Threads: the one that owns the Lua state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CDom;

/// `dom:AgentEventWrite{text=, number=, severity=}`: stores an event that
/// happens now. Returns its id, 0 when it is only in the log. The arguments
/// begin at stack index 2.
int LuaAgentEventWrite(lua_State* L, CDom& dom);

/// `dom:AgentEvents([after_id [, limit]])`: an array of tables {id, number,
/// severity, time, time_ms, text}, oldest first; nil and the reason when the
/// events cannot be read.
int LuaAgentEvents(lua_State* L, CDom& dom);

} // namespace KzaCore
