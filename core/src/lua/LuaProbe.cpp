// SPDX-License-Identifier: Apache-2.0
//
// One hook serves the limit of a test and the coverage of lines. A coroutine
// inherits the hook of its creator.

#include "lua/LuaProbe.h"

#include "base/Error.h"
#include "lua/LineCoverage.h"
#include "lua/LuaGuard.h"
#include "lua/LuaProfile.h"
#include "lua/LuaPush.h"
#include "lua/TestLimit.h"

#include <lua.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// The number of instructions between two checks of the limit. Once the limit is
// over, it is 1: a loop that calls a function by pcall would otherwise be
// interrupted inside of that function every time, and catch the error for ever.
constexpr int kInstructions = 1000;

CLineCoverage s_coverage;

void SetHook(lua_State* L, int instructions);

// Not inlined, so that the hook saves no registers for the event of a line.
[[gnu::noinline]] void LookAtLimit(lua_State* L)
{
    const bool over = CTestLimit::IsOver();
    if (over != (lua_gethookcount(L) == 1))
        SetHook(L, over ? 1 : kInstructions);
    if (over)
        CTestLimit::Check(L, 0);
}

void HookCB(lua_State* L, lua_Debug* event)
{
    if (event->event != LUA_HOOKCOUNT)
        s_coverage.Note(L, event);
    else
        LookAtLimit(L);
}

void SetHook(lua_State* L, int instructions)
{
    lua_sethook(L, HookCB, LUA_MASKCOUNT | s_coverage.Events(), instructions);
}

// limit(seconds, function, ...): calls the function, and interrupts it with an
// error when it takes longer.
int Limit(lua_State* L)
{
    constexpr lua_Number kLongest = 1e9;
    const std::chrono::duration<double> time(
        std::clamp<lua_Number>(luaL_checknumber(L, 1), 0, kLongest));
    luaL_checkany(L, 2);
    if (lua_gethook(L) != HookCB)
        SetHook(L, kInstructions);
    const CTestLimit limit(
        std::chrono::duration_cast<std::chrono::nanoseconds>(time));
    lua_call(L, lua_gettop(L) - 2, LUA_MULTRET);
    return lua_gettop(L) - 1;
}

// cover(directory): begins to count the lines of files there.
int Cover(lua_State* L)
{
    s_coverage.Begin(CheckPath(L, 1));
    SetHook(L, kInstructions);
    return 0;
}

void SetCounts(lua_State* L,
               const char* field,
               const std::vector<std::uint64_t>& counts)
{
    lua_newtable(L);
    for (std::size_t line = 0; line < counts.size(); ++line)
    {
        if (counts[line] == 0)
            continue;
        lua_pushnumber(L, static_cast<lua_Number>(counts[line]));
        lua_rawseti(L, -2, static_cast<int>(line));
    }
    lua_setfield(L, -2, field);
}

// covered(): the hits of lines and functions so far, by path.
int Covered(lua_State* L)
{
    lua_newtable(L);
    for (const auto& [path, file] : s_coverage.Files())
    {
        PushText(L, path);
        lua_newtable(L);
        SetCounts(L, "lines", file.lines);
        SetCounts(L, "functions", file.functions);
        lua_rawset(L, -3);
    }
    return 1;
}

// profile(path): begins to write samples of the call stack to a file.
int Profile(lua_State* L)
{
    // Finer than the tick of most systems, which then decides.
    constexpr std::chrono::milliseconds kPeriod(1);
    std::string error;
    lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
    if (!StartLuaProfile(lua_tothread(L, -1), CheckPath(L, 1), kPeriod, error))
        return PushFailure(L, error);
    lua_pushboolean(L, 1);
    return 1;
}

int CloseFile(lua_State* L)
{
    auto* const stream =
        static_cast<luaL_Stream*>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
    return luaL_fileresult(L, fclose(stream->f) == 0 ? 1 : 0, nullptr);
}

// take_output(): returns a file handle of standard output, and redirects the
// descriptor of standard output to standard error.
int TakeOutput(lua_State* L)
{
    auto* const stream =
        static_cast<luaL_Stream*>(lua_newuserdata(L, sizeof(luaL_Stream)));
    stream->closef = nullptr; // until it is open
    luaL_setmetatable(L, LUA_FILEHANDLE);
    fflush(stdout);
    const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    stream->f = output == -1 ? nullptr : fdopen(output, "w");
    if (stream->f == nullptr ||
        dup2(STDERR_FILENO, STDOUT_FILENO) != STDOUT_FILENO)
        return luaL_error(L, "%s", SystemErrorText(errno).c_str());
    stream->closef = CloseFile;
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"limit", Guarded<Limit>},     {"cover", Guarded<Cover>},
    {"covered", Guarded<Covered>}, {"take_output", Guarded<TakeOutput>},
    {"profile", Guarded<Profile>}, {nullptr, nullptr}};

int OpenProbe(lua_State* L)
{
    luaL_newlib(L, kFunctions);
    return 1;
}

} // namespace

void PreloadLuaProbe(lua_State* L)
{
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_PRELOAD");
    lua_pushcfunction(L, OpenProbe);
    lua_setfield(L, -2, "kza.probe");
    lua_pop(L, 1);
}

} // namespace KzaCore
