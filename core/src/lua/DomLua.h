// SPDX-License-Identifier: Apache-2.0
//
// The methods of the Lua class "SLB.Dom" for the domain itself, the log and the
// trace.
//
// Threads: the one that owns the Lua state.

#pragma once

#include <lua.hpp>

namespace KzaCore
{

/// The methods, guarded; an entry without a name ends the array. Upvalue 1 of
/// each method is the class's metatable, upvalue 2 the table of the generations
/// that `dom:Wait` has seen, by domain and key.
extern const luaL_Reg kDomMethods[];

} // namespace KzaCore
