// SPDX-License-Identifier: Apache-2.0
//
// The functions of the Lua module "kza.host" for processes, signals, sockets,
// terminals, and the events of another agent.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Adds the functions to the table on top of the stack. Raises a Lua error when
/// memory is short.
void AddLuaHostSystem(lua_State* L);

} // namespace KzaCore
