// SPDX-License-Identifier: Apache-2.0
//
// A connection to a socket of the Unix domain, for Lua.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// The Lua function connect(path [, seconds]): a connection, or nil and why
/// not.
///
///     connection:send(bytes [, seconds])  true, or nil and why not
///     connection:line([seconds])          the next line without its end, or
///                                         nil and "timeout", "closed" or why
///     connection:close()
///
/// Each call takes as long as told, 5 seconds unless told; the socket itself
/// never blocks. What was received before a time-out is kept for the next call.
int LuaConnect(lua_State* L);

} // namespace KzaCore
