// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaHostSystem.h"

#include "base/Error.h"
#include "base/RealPath.h"
#include "base/TerminalWidth.h"
#include "events/EventReader.h"
#include "lua/EventLua.h"
#include "lua/LuaConnection.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"
#include "process/ProcessInfo.h"
#include "process/Program.h"

#include <lua.hpp>
#include <openssl/crypto.h>
#include <sqlite3.h>
#include <wx/version.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

void SetText(lua_State* L, const char* field, const std::string& text)
{
    PushText(L, text);
    lua_setfield(L, -2, field);
}

void SetNumber(lua_State* L, const char* field, double number)
{
    lua_pushnumber(L, number);
    lua_setfield(L, -2, field);
}

pid_t CheckPid(lua_State* L)
{
    const lua_Number pid = luaL_checknumber(L, 1);
    luaL_argcheck(L, pid >= 1 && pid <= 0x7fffffff, 1, "not a process id");
    return static_cast<pid_t>(pid);
}

// process(pid): the facts of CProcessInfo as a table, nil without such a
// process.
int Process(lua_State* L)
{
    const pid_t pid = CheckPid(L);
    const std::optional<CProcessInfo> info = InfoOfProcess(pid);
    if (!info)
        return 0;
    lua_createtable(L, 0, 11);
    SetNumber(L, "pid", pid);
    SetNumber(L, "parent", info->parent);
    SetText(L, "name", info->name);
    if (!info->executable.empty())
        SetText(L, "executable", info->executable);
    SetText(L, "state", std::string(1, info->state));
    SetNumber(L, "started", info->started);
    SetNumber(L, "cpu_s", info->cpuSeconds);
    if (info->residentKiB)
        SetNumber(L, "rss_kib", static_cast<double>(*info->residentKiB));
    if (info->threads)
        SetNumber(L, "threads", *info->threads);
    if (!info->directory.empty())
        SetText(L, "directory", info->directory);
    PushTexts(L, info->words);
    lua_setfield(L, -2, "words");
    return 1;
}

int PushPids(lua_State* L, const std::vector<pid_t>& pids)
{
    lua_createtable(L, static_cast<int>(pids.size()), 0);
    for (std::size_t i = 0; i < pids.size(); ++i)
    {
        lua_pushnumber(L, pids[i]);
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    return 1;
}

// children(pid): the ids of a process's children.
int Children(lua_State* L)
{
    return PushPids(L, ChildrenOfProcess(CheckPid(L)));
}

// processes(executable [, directory]): the ids of the processes that run it,
// with that current directory if given.
int Processes(lua_State* L)
{
    const char* const executable = CheckPath(L, 1);
    const char* const directory = lua_isnoneornil(L, 2) ? "" : CheckPath(L, 2);
    return PushPids(L, ProcessesOf(executable, directory));
}

// real_path(path): the path made absolute and free of symbolic links.
int PushRealPath(lua_State* L)
{
    const std::string path = CheckPath(L, 1);
    const std::string real = RealPath(path);
    if (real.empty())
        return PushFailure(L, path + ": " + SystemErrorText(errno));
    PushText(L, real);
    return 1;
}

// versions(): the versions of the libraries. For the framework it is the
// version that this library was built with; there is no other to be had.
int Versions(lua_State* L)
{
    lua_createtable(L, 0, 4);
    SetText(L, "wxwidgets", wxVERSION_NUM_DOT_STRING);
    SetText(L, "lua", LUA_RELEASE);
    SetText(L, "openssl", SSLeay_version(SSLEAY_VERSION));
    SetText(L, "sqlite", sqlite3_libversion());
    return 1;
}

int SignalNumber(lua_State* L)
{
    static const char* const kNames[] = {"TERM", "KILL", "INT", "NONE",
                                         nullptr};
    static constexpr int kNumbers[] = {SIGTERM, SIGKILL, SIGINT, 0};
    return kNumbers[luaL_checkoption(L, 2, nullptr, kNames)];
}

// kill(pid, name): sends a signal; "NONE" only checks whether that is possible.
int Kill(lua_State* L)
{
    const pid_t pid = CheckPid(L);
    if (kill(pid, SignalNumber(L)) != 0)
        return PushFailure(L, SystemErrorText(errno));
    lua_pushboolean(L, 1);
    return 1;
}

// run(words): runs a program to its end, without a shell. Returns its exit
// status, or 128 plus the number of the signal that killed it, and its output.
int Run(lua_State* L)
{
    const std::vector<std::string> words = CheckWords(L, 1);
    std::string output;
    const int status = RunProgram(words, output);
    if (status == -1)
        return PushFailure(L, words.front() + ": " + SystemErrorText(errno));
    lua_pushnumber(L, WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                          : WEXITSTATUS(status));
    PushText(L, output);
    return 2;
}

// clock(): the seconds of a clock that is never set back.
int Clock(lua_State* L)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    lua_pushnumber(L, static_cast<double>(now.tv_sec) +
                          static_cast<double>(now.tv_nsec) / 1e9);
    return 1;
}

// user(): the id of the user that this process acts as.
int User(lua_State* L)
{
    lua_pushnumber(L, geteuid());
    return 1;
}

// columns([descriptor]): characters in a line of a terminal; nil without one.
int Columns(lua_State* L)
{
    const int columns = TerminalWidth(luaL_optint(L, 1, STDOUT_FILENO));
    if (columns <= 0)
        return 0;
    lua_pushnumber(L, columns);
    return 1;
}

// events(path [, after [, last]]): the events of a database.
int Events(lua_State* L)
{
    const std::string path = CheckPath(L, 1);
    CEventRange range;
    range.afterId = static_cast<std::int64_t>(luaL_optnumber(L, 2, 0));
    range.last = static_cast<std::int64_t>(luaL_optnumber(L, 3, -1));
    std::vector<CStoredEvent> events;
    std::string error;
    if (!ReadEventsOf(path, range, events, error))
        return PushFailure(L, error);
    PushEvents(L, events);
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"process", Guarded<Process>},
    {"children", Guarded<Children>},
    {"kill", Guarded<Kill>},
    {"run", Guarded<Run>},
    {"clock", Guarded<Clock>},
    {"user", Guarded<User>},
    {"columns", Guarded<Columns>},
    {"events", Guarded<Events>},
    {"processes", Guarded<Processes>},
    {"real_path", Guarded<PushRealPath>},
    {"versions", Guarded<Versions>},
    {"connect", Guarded<LuaConnect>},
    {nullptr, nullptr},
};

} // namespace

void AddLuaHostSystem(lua_State* L)
{
    luaL_setfuncs(L, kFunctions, 0);
}

} // namespace KzaCore
