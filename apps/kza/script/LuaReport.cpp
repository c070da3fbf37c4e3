// SPDX-License-Identifier: Apache-2.0

#include "script/LuaReport.h"

#include "StandardError.h"

#include "base/Bytes.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>

#include <cmath>

namespace
{

wxString TextAt(lua_State* L, int index)
{
    size_t length = 0;
    const char* const text = lua_tolstring(L, index, &length);
    return KzaCore::TextOfBytes({text, length});
}

// Describes the value on top of the stack, which is no number.
wxString Show(lua_State* L)
{
    switch (lua_type(L, -1))
    {
    case LUA_TBOOLEAN:
        return lua_toboolean(L, -1) != 0 ? "true" : "false";
    case LUA_TSTRING:
        return "the text '" + TextAt(L, -1) + "'";
    default:
        return wxString("a ") + luaL_typename(L, -1);
    }
}

// Describes the number, or the text that is one, on top of the stack; empty
// when it is a valid status.
wxString DescribeOddNumber(lua_State* L)
{
    constexpr lua_Number kHighest = 255;
    const lua_Number number = lua_tonumber(L, -1);
    if (number >= 0 && number <= kHighest && std::floor(number) == number)
        return "";
    const auto status = static_cast<int>(lua_tointeger(L, -1));
    lua_pushvalue(L, -1); // lua_tolstring() turns the copy into a text
    const wxString text = TextAt(L, -1);
    lua_pop(L, 1);
    return text + ", which is no whole number from 0 to 255: taken as " +
           wxString::Format("%d", status);
}

// Leaves a text on the stack when the module has a problem. Runs in a protected
// call, because the globals and the module may have metamethods.
int CheckModuleCB(lua_State* L)
{
    lua_getglobal(L, "kzaAppModule");
    if (!lua_istable(L, -1))
    {
        lua_pushfstring(L,
                        "is no table but a %s: it should end by returning the "
                        "table of its functions",
                        luaL_typename(L, -1));
        return 1;
    }
    for (const char* const name : {"init", "main", "shutdown"})
    {
        lua_getfield(L, 1, name);
        if (lua_isfunction(L, -1))
            return 0;
    }
    lua_pushliteral(L, "has none of the functions 'init', 'main' and "
                       "'shutdown'");
    return 1;
}

} // namespace

void ReportLuaFailure(const wxString& report)
{
    WriteToStandardError(report + "\n");
    KzaCore::LogToDisk(KzaCore::ELogLevel::Error, "Lua", report,
                       KzaCore::EConsole::Leave);
}

wxString DescribeOddResult(KzaCore::CLuaInterpreter& lua)
{
    lua_State* const L = lua.L();
    wxString error;
    if (lua.GetReturnedError(error))
        return "nil and '" + error + "', Lua's way to fail: taken as success";
    if (lua_isnil(L, -1))
        return "";
    if (lua_isnumber(L, -1) != 0)
        return DescribeOddNumber(L);
    return Show(L) + ", neither a number nor nothing: taken as success";
}

wxString DescribeOddModule(lua_State* L)
{
    lua_pushcfunction(L, CheckModuleCB);
    const int status = lua_pcall(L, 0, 1, 0);
    // An error here is not reported: the same one comes again when the agent
    // calls the function.
    const bool isOdd = status == LUA_OK && lua_type(L, -1) == LUA_TSTRING;
    wxString text = isOdd ? TextAt(L, -1) : wxString();
    lua_pop(L, 1);
    return text;
}
