// SPDX-License-Identifier: Apache-2.0
//
// The method of the Lua class "SLB.Dom" that reads the application's data
// files. DomClass.cpp adds it to the class.
//
// Threads: the one that owns the Lua state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// `dom:ReadArchive(name)`: the bytes of the first file of that name beside the
/// modules of the leading path list, else of the first entry of exactly that
/// name in the archives of `app.lua.zippath`. nil and the reason when there is
/// none, when it cannot be read, and for a name that is absolute or has a part
/// `..`.
int LuaReadArchive(lua_State* L);

} // namespace KzaCore
