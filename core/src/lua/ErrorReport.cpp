// SPDX-License-Identifier: Apache-2.0

#include "lua/ErrorReport.h"

#include "lua/DescribeTable.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"
#include "lua/MethodHint.h"

#include <lua.hpp>

#include <string>

namespace KzaCore
{

namespace
{

// Pushes the text of the error value at `index`, an absolute one.
void PushErrorText(lua_State* L, int index)
{
    if (lua_type(L, index) == LUA_TSTRING)
        PushText(L, lua_tostring(L, index) + MethodHint(L, index));
    else if (lua_isstring(L, index) != 0)
        lua_pushvalue(L, index);
    else if (luaL_callmeta(L, index, "__tostring") != 0 &&
             lua_isstring(L, -1) != 0)
        return;
    else if (lua_istable(L, index))
        PushText(L, DescribeTable(L, index));
    else
        lua_pushfstring(L, "(error object is a %s value)",
                        luaL_typename(L, index));
}

int MakeReport(lua_State* L)
{
    luaL_checkany(L, 1);
    PushErrorText(L, 1);
    luaL_traceback(L, L, lua_tostring(L, -1), 1);
    return 1;
}

} // namespace

int ErrorReportCB(lua_State* L)
{
    return Guarded<MakeReport>(L);
}

} // namespace KzaCore
