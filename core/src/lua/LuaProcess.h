// SPDX-License-Identifier: Apache-2.0
//
// Children that Lua starts.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Replaces `os.execute` and `io.popen` of a state by functions that behave
/// alike, but whose children have an empty signal mask and default
/// dispositions: the agent's threads block SIGTERM and ignore SIGPIPE, and a
/// child under these would neither stop when told to nor end with its reader.
void InstallLuaProcess(lua_State* L);

} // namespace KzaCore
