// SPDX-License-Identifier: Apache-2.0

#include "lua/DomObject.h"

#include <lua.hpp>

namespace KzaCore
{

CDom& DomOfMethod(lua_State* L)
{
    // luaL_checkudata would look the class up by its name, which takes three
    // times as long, and a script may have put another value under that name.
    void* self = nullptr;
    if (lua_type(L, 1) == LUA_TUSERDATA && lua_getmetatable(L, 1) != 0)
    {
        if (lua_rawequal(L, -1, lua_upvalueindex(1)) != 0)
            self = lua_touserdata(L, 1);
        lua_pop(L, 1);
    }
    if (self == nullptr)
        luaL_argerror(L, 1,
                      lua_pushfstring(L, "%s expected, got %s", kDomClass,
                                      luaL_typename(L, 1)));
    return *static_cast<const CDomReference*>(self)->dom;
}

} // namespace KzaCore
