// SPDX-License-Identifier: Apache-2.0
//
// Child processes that Lua starts.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Replaces `os.execute` and `io.popen` of a state by functions with the same
/// behaviour whose children have an empty signal mask and default dispositions.
/// The agent's threads block SIGTERM and ignore SIGPIPE; a child that inherited
/// this would neither stop on request nor end with its reader. A child inherits
/// only the descriptors 0 to 2, one of them replaced by the pipe of `io.popen`.
void InstallLuaProcess(lua_State* L);

} // namespace KzaCore
