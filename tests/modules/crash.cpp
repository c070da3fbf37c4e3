// SPDX-License-Identifier: Apache-2.0
//
// A Lua module whose functions end the process, as a broken C module of an
// author could.
//
//   crash.now(way)         on the calling thread
//   crash.on_main(way)     on the main thread, wherever it is
//   crash.on_thread(way)   on a thread that the agent did not start
//   crash.threads(count)   starts threads that wait for ever
//   crash.fill(megabytes)  allocates memory and writes to all of it

#include "support/HardwareFaults.h"

#include <lua.hpp>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

using namespace TestSupport;

void DoubleFree()
{
    void* block = std::malloc(2000);
    void* volatile alias = block;
    std::free(block);
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): what it is here for
    std::free(alias);
}

void Overflow()
{
    FaultStackOverflow(0);
}

struct CWay
{
    const char* name;
    void (*crash)();
};

constexpr CWay kWays[] = {
    {"segv", FaultSegv},
    {"bus", FaultBus},
    {"ill", FaultIll},
    {"fpe", FaultFpe},
    {"trap", FaultTrap},
    {"abort", std::abort},
    {"terminate", std::terminate},
    {"overflow", Overflow},
    {"heap", DoubleFree},
};

void (*g_onMain)() = nullptr;

extern "C" void CrashOnMainCB(int /*signal*/)
{
    // A sanitizer runs handlers with everything blocked; a fault would then
    // end the process before it reached the agent's handler.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
    g_onMain();
}

void (*CheckWay(lua_State* L))()
{
    const char* name = luaL_checkstring(L, 1);
    for (const CWay& way : kWays)
        if (std::strcmp(way.name, name) == 0)
            return way.crash;
    luaL_argerror(L, 1, "no such way");
    return nullptr;
}

int Now(lua_State* L)
{
    CheckWay(L)();
    return 0;
}

int OnMain(lua_State* L)
{
    g_onMain = CheckWay(L);
    std::signal(SIGUSR1, CrashOnMainCB);
    syscall(SYS_tgkill, getpid(), getpid(), SIGUSR1);
    for (;;)
        pause();
}

int OnThread(lua_State* L)
{
    std::thread(CheckWay(L)).join();
    return 0;
}

int Threads(lua_State* L)
{
    for (lua_Integer left = luaL_checkinteger(L, 1); left > 0; left--)
        std::thread(
            []
            {
                for (;;)
                    pause();
            })
            .detach();
    return 0;
}

int Fill(lua_State* L)
{
    const auto size = static_cast<std::size_t>(luaL_checkinteger(L, 1)) << 20U;
    std::memset(lua_newuserdata(L, size), 0x5a, size);
    luaL_ref(L, LUA_REGISTRYINDEX); // kept for good
    return 0;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_crash(
    lua_State* L)
{
    constexpr luaL_Reg kFunctions[] = {
        {"now", Now},         {"on_main", OnMain}, {"on_thread", OnThread},
        {"threads", Threads}, {"fill", Fill},      {nullptr, nullptr},
    };
    luaL_newlib(L, kFunctions);
    return 1;
}
