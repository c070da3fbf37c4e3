// SPDX-License-Identifier: Apache-2.0

#include "kza_core/LuaInterpreter.h"

#include <gtest/gtest.h>
#include <lua.hpp>
#include <wx/mstream.h>
#include <wx/sstream.h>

#include <cstdlib>
#include <stdexcept>

using KzaCore::CLuaInterpreter;

namespace
{

class LuaInterpreter : public ::testing::Test
{
protected:
    int Run(const char* code, int args = 0, int results = 0)
    {
        wxMemoryInputStream in(code, strlen(code));
        return m_lua.RunScript(in, args, results, "chunk", &m_out);
    }

    std::string Info() const
    {
        return std::string(m_lua.GetErrorInfo().utf8_str());
    }

    wxString m_printed;
    wxStringOutputStream m_out{&m_printed};
    CLuaInterpreter m_lua{false, L"test.lua", true};
};

TEST_F(LuaInterpreter, LeavesExactlyTheResultsAskedFor)
{
    EXPECT_EQ(Run("return 1, 2, 3", 0, 1), 0);
    EXPECT_EQ(lua_gettop(m_lua.L()), 1);
    EXPECT_EQ(lua_tointeger(m_lua.L(), 1), 1);
    lua_settop(m_lua.L(), 0);
    EXPECT_EQ(Run("", 0, 1), 0);
    EXPECT_TRUE(lua_isnil(m_lua.L(), 1));
    EXPECT_EQ(Info(), "");
}

TEST_F(LuaInterpreter, ArgumentsReachTheChunk)
{
    lua_pushstring(m_lua.L(), "below");
    lua_pushinteger(m_lua.L(), 40);
    lua_pushinteger(m_lua.L(), 2);
    EXPECT_EQ(Run("local a, b = ... return a + b", 2, 1), 0);
    EXPECT_EQ(lua_gettop(m_lua.L()), 2);
    EXPECT_EQ(lua_tointeger(m_lua.L(), 2), 42);
    EXPECT_STREQ(lua_tostring(m_lua.L(), 1), "below");
}

TEST_F(LuaInterpreter, KnowsWhatWasReturnedAsAnError)
{
    const std::pair<const char*, const char*> cases[] = {
        {"return nil, 'no route'", "no route"},
        {"return nil, ''", ""},
        {"return nil, 'a', 'b'", "a"},
    };
    for (const auto& [code, expected] : cases)
    {
        wxString text;
        EXPECT_EQ(Run(code, 0, 1), 0);
        EXPECT_TRUE(m_lua.GetReturnedError(text)) << code;
        EXPECT_EQ(text, expected);
        EXPECT_EQ(lua_gettop(m_lua.L()), 1);
        lua_settop(m_lua.L(), 0);
    }
    for (const char* const code :
         {"", "return nil", "return nil, 7", "return false, 'x'", "error('x')",
          "return 'x'", "return"})
    {
        wxString text = "untouched";
        Run(code, 0, 1);
        EXPECT_FALSE(m_lua.GetReturnedError(text)) << code;
        EXPECT_EQ(text, "untouched");
        lua_settop(m_lua.L(), 0);
    }
    EXPECT_EQ(Run("return nil, 'x', 3", 0, LUA_MULTRET), 0);
    EXPECT_EQ(lua_gettop(m_lua.L()), 3);
}

TEST_F(LuaInterpreter, AFailureLeavesTheStackAndSaysWhy)
{
    lua_pushstring(m_lua.L(), "below");
    EXPECT_EQ(Run("return +"), LUA_ERRSYNTAX);
    EXPECT_EQ(Info().substr(0, 8), "chunk:1:");
    EXPECT_EQ(Run("error('boom')", 0, 1), LUA_ERRRUN);
    EXPECT_EQ(Info().substr(0, 31), "chunk:1: boom\nstack traceback:\n");
    EXPECT_EQ(lua_gettop(m_lua.L()), 1);
    EXPECT_EQ(Run("return 1"), 0);
    EXPECT_EQ(Info(), "") << "a success clears the last failure";
}

int ThrowCB(lua_State* /*L*/)
{
    throw std::runtime_error("foreign");
}

TEST_F(LuaInterpreter, AForeignExceptionIsAFailureNotACrash)
{
    lua_pushcfunction(m_lua.L(), ThrowCB);
    lua_setglobal(m_lua.L(), "throw");
    EXPECT_EQ(Run("throw()"), -1);
    EXPECT_EQ(Info(), "a C++ exception ended the chunk");
    EXPECT_EQ(lua_gettop(m_lua.L()), 0);
}

TEST_F(LuaInterpreter, PrintGoesToTheChunksStream)
{
    EXPECT_EQ(Run("print('a', 1, nil, true)\n"
                  "print(setmetatable({}, {__tostring = function() "
                  "return 'mine' end}))\nprint()"),
              0);
    EXPECT_EQ(m_printed, "a\t1\tnil\ttrue\nmine\n\n");
}

TEST_F(LuaInterpreter, PrintUsesTheToStringOfTheMoment)
{
    EXPECT_EQ(Run("local kept = tostring\n"
                  "function tostring(v) return '<' .. kept(v) .. '>' end\n"
                  "print('a', 1)\n"
                  "tostring = kept\n"
                  "print('b')"),
              0);
    EXPECT_EQ(m_printed, "<a>\t<1>\nb\n");
    EXPECT_EQ(Run("function tostring() return {} end\nprint(1)"), LUA_ERRRUN);
    EXPECT_EQ(Info().substr(0, 53),
              "chunk:2: 'tostring' must return a string to 'print'\ns");
    EXPECT_EQ(Run("tostring = nil\nprint(1)"), LUA_ERRRUN);
    EXPECT_EQ(m_printed, "<a>\t<1>\nb\n");
}

TEST_F(LuaInterpreter, PrintHasNoUpvalues)
{
    EXPECT_EQ(Run("return debug.getinfo(print, 'u').nups", 0, 1), 0);
    EXPECT_EQ(lua_tointeger(m_lua.L(), -1), 0);
}

// Notes what has been synced of what was written.
class CSyncedOutput : public wxStringOutputStream
{
public:
    void Sync() override { synced = GetString(); }

    wxString synced;
};

TEST_F(LuaInterpreter, ALineIsThroughWhenPrintReturns)
{
    CSyncedOutput out;
    lua_pushlightuserdata(m_lua.L(), &out);
    lua_pushcclosure(
        m_lua.L(),
        [](lua_State* L)
        {
            const auto* const stream = static_cast<CSyncedOutput*>(
                lua_touserdata(L, lua_upvalueindex(1)));
            lua_pushstring(L, stream->synced.utf8_str());
            return 1;
        },
        1);
    lua_setglobal(m_lua.L(), "synced");
    wxStringInputStream in("print('a') assert(synced() == 'a\\n')\n"
                           "print('b') assert(synced() == 'a\\nb\\n')");
    EXPECT_EQ(m_lua.RunScript(in, 0, 0, "chunk", &out), 0) << Info();
}

TEST_F(LuaInterpreter, PrintSurvivesARegistryThatAScriptEmptied)
{
    EXPECT_EQ(Run("local registry = debug.getregistry()\n"
                  "for key in pairs(registry) do\n"
                  "  if type(key) == 'userdata' then registry[key] = {} end\n"
                  "end\n"
                  "print()"),
              0);
}

TEST_F(LuaInterpreter, TheEnvironmentNamesNoPlacesForCode)
{
    setenv("LUA_PATH", "/evil/?.lua", 1);
    setenv("LUA_CPATH", "/evil/?.so", 1);
    setenv("LUA_INIT", "evil = true", 1);
    CLuaInterpreter lua(false, L"env.lua", true);
    unsetenv("LUA_PATH");
    unsetenv("LUA_CPATH");
    unsetenv("LUA_INIT");
    wxStringInputStream in("assert(not package.path:find('evil')) "
                           "assert(not package.cpath:find('evil')) "
                           "assert(evil == nil)");
    EXPECT_EQ(lua.RunScript(in, 0, 0, "env", nullptr), 0) << lua.GetErrorInfo();
}

std::string Field(CLuaInterpreter& lua, const char* name)
{
    lua_getglobal(lua.L(), "package");
    lua_getfield(lua.L(), -1, name);
    std::string text = lua_tostring(lua.L(), -1);
    lua_pop(lua.L(), 2);
    return text;
}

TEST_F(LuaInterpreter, PackagePathsAreAbsoluteButForTheGivenOnes)
{
    m_lua.SetPackagePaths("/bin/dir", "rel/?.lua;/given/?.lua", "c/?.so");
    const std::string path = Field(m_lua, "path");
    const std::string expected = "rel/?.lua;/given/?.lua;/bin/dir/lua/?.lua;"
                                 "/bin/dir/lua/?/init.lua;/";
    EXPECT_EQ(path.substr(0, expected.size()), expected);
    EXPECT_EQ(path.find(";."), std::string::npos) << path;
    const std::string cpath = Field(m_lua, "cpath");
    const std::string expectedC = "c/?.so;/bin/dir/lib/lua/?.so;/";
    EXPECT_EQ(cpath.substr(0, expectedC.size()), expectedC);
    EXPECT_EQ(cpath.find(";."), std::string::npos) << cpath;
}

TEST_F(LuaInterpreter, PackagePathsWithoutTheExecutablesDirectory)
{
    m_lua.SetPackagePaths("", "/given/?.lua", "");
    EXPECT_EQ(Field(m_lua, "path").substr(0, 19), "/given/?.lua;/usr/l");
    EXPECT_EQ(Field(m_lua, "cpath").substr(0, 6), "/usr/l");
    m_lua.SetPackagePaths("", "", "");
    EXPECT_EQ(Field(m_lua, "path").substr(0, 6), "/usr/l");
    // A root directory of the file system is none of the agent's.
    EXPECT_EQ(Field(m_lua, "path").find("/lua/?.lua"), std::string::npos);
}

TEST_F(LuaInterpreter, PackagePathsMayBeSetAgain)
{
    m_lua.SetPackagePaths("/one", "", "");
    const std::string first = Field(m_lua, "path");
    m_lua.SetPackagePaths("/two", "", "");
    m_lua.SetPackagePaths("/one", "", "");
    EXPECT_EQ(Field(m_lua, "path"), first);
    EXPECT_EQ(first.substr(0, 13), "/one/lua/?.lu");
    EXPECT_EQ(Run("return #package.searchers", 0, 1), 0);
    EXPECT_EQ(lua_tointeger(m_lua.L(), -1), 5);
}

TEST_F(LuaInterpreter, WithoutThePackageLibraryPathsAreALuaError)
{
    CLuaInterpreter bare(false, L"bare.lua", false);
    lua_pushlightuserdata(bare.L(), &bare);
    lua_pushcclosure(
        bare.L(),
        [](lua_State* L)
        {
            static_cast<CLuaInterpreter*>(
                lua_touserdata(L, lua_upvalueindex(1)))
                ->SetPackagePaths("/bin", "", "");
            return 0;
        },
        1);
    EXPECT_EQ(lua_pcall(bare.L(), 0, 0, 0), LUA_ERRRUN);
    EXPECT_STREQ(lua_tostring(bare.L(), -1), "the package library is not open");
}

} // namespace
