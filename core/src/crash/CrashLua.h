// SPDX-License-Identifier: Apache-2.0
//
// The Lua states whose tracebacks a dump contains.
//
// A running process only keeps a list of its states, so the interpreter is not
// slowed by a single instruction. After a crash, a forked copy of the process
// asks Lua about its call chain. The copy may fault or hang on broken data; it
// is ended in any case.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Adds a state, owned by the calling thread, to the list. The list holds eight
/// states; dumps contain no traceback of any further one.
///
/// Threads: any.
void RememberLuaState(lua_State* L);

/// Removes a state from the list, before the state is closed.
///
/// Threads: any.
void ForgetLuaState(lua_State* L);

/// Writes the innermost frames of each state in the list, a line each, and each
/// line at once.
///
/// \param out  A descriptor; the first failed write ends the work.
///
/// Only for a forked copy of the process that ends afterwards: the call changes
/// the states, and may not return when one is broken.
void WriteLuaTracebacks(int out);

} // namespace KzaCore
