// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaChildren.h"

#include "base/Descriptor.h"
#include "base/Error.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"
#include "process/Child.h"
#include "process/DirectoryWatch.h"
#include "process/TakenSignals.h"

#include <lua.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <optional>

#include <poll.h>
#include <sys/wait.h>

namespace KzaCore
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr char kWatchClass[] = "kza.host.Watch";
constexpr double kMostSeconds = 1e9; // keeps the arithmetic from overflowing

// The events that a wait is for; descriptors and processes that are not waited
// for are negative.
struct CAwaited
{
    int signals = -1;
    pid_t child = -1;
    int watch = -1;
    Clock::time_point deadline;
};

// start(words): starts a program in the foreground.
int Start(lua_State* L)
{
    const std::vector<std::string> words = CheckWords(L, 1);
    const pid_t pid = StartChild(words);
    if (pid == -1)
        return PushFailure(L, words.front() + ": " + SystemErrorText(errno));
    lua_pushnumber(L, pid);
    return 1;
}

// take_signals(): from now on, await() reports signals.
int LuaTakeSignals(lua_State* L)
{
    if (TakeSignals() == -1)
        return PushFailure(L, SystemErrorText(errno));
    lua_pushboolean(L, 1);
    return 1;
}

// watch(): a watch for changes of files; nil and the reason where the system
// has none.
int Watch(lua_State* L)
{
    CDescriptor watch(OpenDirectoryWatch());
    if (!watch.IsOpen())
        return PushFailure(L, SystemErrorText(errno));
    void* const place = lua_newuserdata(L, sizeof(CDescriptor));
    new (place) CDescriptor(std::move(watch));
    luaL_setmetatable(L, kWatchClass);
    return 1;
}

CDescriptor& CheckWatch(lua_State* L, int index)
{
    return *static_cast<CDescriptor*>(luaL_checkudata(L, index, kWatchClass));
}

int WatchAdd(lua_State* L)
{
    const CDescriptor& watch = CheckWatch(L, 1);
    const char* const path = CheckPath(L, 2);
    if (!WatchDirectory(watch.Get(), path))
        return PushFailure(L,
                           std::string(path) + ": " + SystemErrorText(errno));
    lua_pushboolean(L, 1);
    return 1;
}

// Closes the watch and leaves an object without a descriptor, because a script
// may call this function, too.
int WatchCollect(lua_State* L)
{
    CheckWatch(L, 1).Close();
    return 0;
}

const char* NameOf(int signal)
{
    switch (signal)
    {
    case SIGINT:
        return "INT";
    case SIGTERM:
        return "TERM";
    default:
        return "HUP";
    }
}

// Pushes the next signal that has come, except that of a child's end; pushes
// nothing without one.
int PushSignal(lua_State* L, const CAwaited& awaited)
{
    CTakenSignal signal{};
    while (awaited.signals != -1 && NextTakenSignal(signal))
    {
        if (signal.number == SIGCHLD)
            continue;
        lua_pushliteral(L, "signal");
        lua_pushstring(L, NameOf(signal.number));
        lua_pushboolean(L, signal.fromSystem ? 1 : 0);
        return 3;
    }
    return 0;
}

int PushEnd(lua_State* L, const CAwaited& awaited)
{
    int status = 0;
    if (awaited.child == -1 ||
        waitpid(awaited.child, &status, WNOHANG) != awaited.child)
        return 0;
    lua_pushliteral(L, "ended");
    if (WIFSIGNALED(status))
    {
        lua_pushnil(L);
        lua_pushnumber(L, WTERMSIG(status));
        return 3;
    }
    lua_pushnumber(L, WEXITSTATUS(status));
    return 2;
}

// Sleeps until an event has come or the time is up.
//
// \return whether files have changed; unset when the time is up.
std::optional<bool> Sleep(const CAwaited& awaited)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        awaited.deadline - Clock::now());
    std::array<pollfd, 2> looks = {
        {{awaited.signals, POLLIN, 0}, {awaited.watch, POLLIN, 0}}};
    const int ready =
        poll(looks.data(), looks.size(),
             static_cast<int>(std::clamp<long>(left.count(), 0, 1'000'000)));
    if (ready == 0 && Clock::now() >= awaited.deadline)
        return std::nullopt;
    return ready > 0 && looks[1].revents != 0;
}

CAwaited CheckAwaited(lua_State* L)
{
    CAwaited awaited;
    const double seconds =
        std::clamp(luaL_checknumber(L, 1), 0.0, kMostSeconds);
    awaited.deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(seconds));
    awaited.child = static_cast<pid_t>(luaL_optnumber(L, 2, -1));
    if (!lua_isnoneornil(L, 3))
        awaited.watch = CheckWatch(L, 3).Get();
    awaited.signals = TakeSignals(); // reports a child's end, too
    if (awaited.signals == -1)
        luaL_error(L, "%s", SystemErrorText(errno).c_str());
    return awaited;
}

// await(seconds [, child [, watch]]): waits for the first event and returns it.
int Await(lua_State* L)
{
    const CAwaited awaited = CheckAwaited(L);
    for (;;)
    {
        // Signals are read before the child is checked: if the child ends after
        // that check, its signal wakes the sleep.
        int results = PushSignal(L, awaited);
        if (results == 0)
            results = PushEnd(L, awaited);
        if (results != 0)
            return results;
        const std::optional<bool> changed = Sleep(awaited);
        if (!changed)
            break;
        if (*changed)
        {
            ForgetChanges(awaited.watch);
            lua_pushliteral(L, "changed");
            return 1;
        }
    }
    lua_pushliteral(L, "timeout");
    return 1;
}

const luaL_Reg kFunctions[] = {{"start", Guarded<Start>},
                               {"take_signals", Guarded<LuaTakeSignals>},
                               {"watch", Guarded<Watch>},
                               {"await", Guarded<Await>},
                               {nullptr, nullptr}};

const luaL_Reg kWatchMethods[] = {{"add", Guarded<WatchAdd>},
                                  {"__gc", Guarded<WatchCollect>},
                                  {nullptr, nullptr}};

} // namespace

void AddLuaChildren(lua_State* L)
{
    if (luaL_newmetatable(L, kWatchClass) != 0)
    {
        luaL_setfuncs(L, kWatchMethods, 0);
        lua_pushvalue(L, -1);
        lua_setfield(L, -2, "__index");
    }
    lua_pop(L, 1);
    luaL_setfuncs(L, kFunctions, 0);
}

} // namespace KzaCore
