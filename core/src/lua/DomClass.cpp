// SPDX-License-Identifier: Apache-2.0
//
// The Lua class "SLB.Dom": its methods, each from the file of its service, and
// the value that stands for a domain.

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

// A reference does not own its domain, so its end is not the domain's.
int ForgetCB(lua_State* /*L*/)
{
    return 0;
}

// Adds methods to the class on top of the stack. They are closures over the
// values below it: the class's metatable, to know their own kind quickly, and
// the table of what dom:Wait has seen.
void AddMethods(lua_State* L, const luaL_Reg* methods)
{
    lua_pushvalue(L, -3);
    lua_pushvalue(L, -3);
    luaL_setfuncs(L, methods, 2);
}

// Pushes the metatable of the class. It is registered last, whole.
void DefineClass(lua_State* L)
{
    lua_newtable(L);
    lua_newtable(L); // what dom:Wait has seen
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
    if (!lua_istable(L, -1)) // absent, or put there by a script
    {
        lua_pop(L, 1);
        DefineClass(L);
    }
    lua_setmetatable(L, -2);
}

} // namespace KzaCore
