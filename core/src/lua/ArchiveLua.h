// SPDX-License-Identifier: Apache-2.0
//
// The application's archives as a method of the Lua class "SLB.Dom", to be
// guarded and closed over the class as its other methods are.
//
// Threads: the one that owns the Lua state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// `dom:ReadArchive(name)`: the bytes of the first entry of exactly that name
/// in the archives of `app.lua.zippath`; nil and the reason when none has it,
/// or when the one that has it cannot be read.
int LuaReadArchive(lua_State* L);

} // namespace KzaCore
