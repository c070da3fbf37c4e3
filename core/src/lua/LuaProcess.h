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
/// A child inherits the descriptors 0 to 2, one of them replaced by the pipe of
/// `io.popen`, and no other.
void InstallLuaProcess(lua_State* L);

} // namespace KzaCore
