// SPDX-License-Identifier: Apache-2.0
//
// The Lua class "SLB.Dom": the table of its methods, which the files of the
// services define, and the userdata that refers to a domain.

#include "kza_core/Dom.h"
#include "lua/ArchiveLua.h"
#include "lua/DomLua.h"
#include "lua/DomObject.h"
#include "lua/EventLua.h"
#include "lua/LuaGuard.h"

#include <lua.hpp>

namespace KzaCore
{

namespace
{

constexpr luaL_Reg kServiceMethods[] = {
    {"AgentEventWrite", Guarded<LuaAgentEventWrite>},
    {"AgentEvents", Guarded<LuaAgentEvents>},
    {"ReadArchive", Guarded<LuaReadArchive>},
    {nullptr, nullptr},
};

// Does nothing: a reference does not own its domain.
int ForgetCB(lua_State* /*L*/)
{
    return 0;
}

// Adds methods to the class on top of the stack. They are closures over the two
// values below it: the class's metatable, by which a method checks its first
// argument, and the table of the generations that dom:Wait has seen.
void AddMethods(lua_State* L, const luaL_Reg* methods)
{
    lua_pushvalue(L, -3);
    lua_pushvalue(L, -3);
    luaL_setfuncs(L, methods, 2);
}

// Pushes the metatable of the class. It is registered last, when it is
// complete.
void DefineClass(lua_State* L)
{
    lua_newtable(L);
    lua_newtable(L); // the generations that dom:Wait has seen
    lua_newtable(L); // the class
    lua_newtable(L);
    lua_setmetatable(L, -2);
    AddMethods(L, kDomMethods);
    AddMethods(L, kServiceMethods);
    lua_setfield(L, -3, "__index");
    lua_pop(L, 1);

    lua_pushstring(L, kDomClass);
    lua_setfield(L, -2, "__class");
    lua_pushcfunction(L, ForgetCB);
    lua_setfield(L, -2, "__gc");
    lua_pushvalue(L, -1);
    lua_setfield(L, LUA_REGISTRYINDEX, kDomClass);
}

} // namespace

void PushDom(lua_State* L, CDom* dom)
{
    if (dom == nullptr)
    {
        lua_pushnil(L);
        return;
    }
    auto* const reference =
        static_cast<CDomReference*>(lua_newuserdata(L, sizeof(CDomReference)));
    reference->dom = dom;
    luaL_getmetatable(L, kDomClass);
    if (!lua_istable(L, -1)) // missing, or replaced by a script
    {
        lua_pop(L, 1);
        DefineClass(L);
    }
    lua_setmetatable(L, -2);
}

} // namespace KzaCore
