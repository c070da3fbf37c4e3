// SPDX-License-Identifier: Apache-2.0
//
// The methods of the Lua class "SLB.Dom" that the domain itself answers, and
// those on log and trace.
//
// Threads: the one that owns the Lua state.

#pragma once

#include <lua.hpp>

namespace KzaCore
{

/// The methods, guarded, up to an entry without a name. Upvalue 1 of each is
/// the class's metatable, upvalue 2 the table of generations that `dom:Wait`
/// has seen, by domain and key.
extern const luaL_Reg kDomMethods[];

} // namespace KzaCore
