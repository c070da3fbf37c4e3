// SPDX-License-Identifier: Apache-2.0
//
// Which Lua states a dump tells of, and what it tells.
//
// While all is well this costs nothing but remembering the states: the
// interpreter is not slowed by a single instruction. After a crash, a copy of
// the process asks Lua about its call chain. The copy may fault or hang on
// broken data: it is thrown away in any case.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Remembers a state, owned by the calling thread. Eight are kept at a time; a
/// dump does not tell of more.
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
