// SPDX-License-Identifier: Apache-2.0
//
// The functions of the Lua module "kza.host" for a tool that runs another
// program in the foreground: the start of the program, and a wait for the first
// of these: its end, a signal, a change of files.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Adds the functions to the table on top of the stack.
void AddLuaChildren(lua_State* L);

} // namespace KzaCore
