// SPDX-License-Identifier: Apache-2.0
//
// Which Lua states a dump tells of, and what it tells.
//
// While all is well this costs nothing but remembering the states: the
// interpreter is not slowed by a single instruction. A traceback is taken in
// a throw-away copy of the crashed process, where Lua may be asked about its
// call chain whatever the state of the original; a copy that faults or hangs
// on broken data is lost without harm.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Remembers a state, owned by the calling thread. A few are kept at a time;
/// more than that are not told of.
///
/// Threads: any.
void RememberLuaState(lua_State* L);

/// Forgets a state that is about to be closed.
///
/// Threads: any.
void ForgetLuaState(lua_State* L);

/// Writes the innermost frames of each remembered state, a line each, as soon
/// as each is known.
///
/// \param out  A descriptor, written to as long as it takes what it is given.
///
/// Only for a copy of the process that is thrown away afterwards: it changes
/// the states, and does not return from broken ones.
void WriteLuaTracebacks(int out);

} // namespace KzaCore
