// SPDX-License-Identifier: Apache-2.0
//
// A connection to a socket of the Unix domain, for Lua.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// The Lua function connect(path [, seconds]): a connection, or nil and the
/// reason.
///
///     connection:send(bytes [, seconds])  true, or nil and the reason
///     connection:line([seconds])          the next line without its line
///                                         break, or nil and "timeout",
///                                         "closed" or another reason
///     connection:close()
///
/// A call waits for at most the given time, 5 seconds by default. Bytes that
/// were received before a time-out are kept for the next call.
int LuaConnect(lua_State* L);

} // namespace KzaCore
