// SPDX-License-Identifier: Apache-2.0
//
// What does it cost a script that a dump can tell its call chain?
//
// The same calls run in a state that dumps know of, and in a bare one.

#include "Bench.h"

#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>

namespace
{

constexpr int kTurns = 40;

// Calls and returns are all that a call chain can slow down.
constexpr char kScript[] = "local function fib(n) if n < 2 then return n end "
                           "return fib(n - 1) + fib(n - 2) end "
                           "return function() return fib(23) end";

void Load(lua_State* L)
{
    if (luaL_dostring(L, kScript) != 0)
        exit(1);
}

void Call(lua_State* L)
{
    lua_pushvalue(L, -1);
    lua_call(L, 0, 0);
}

} // namespace

int main()
{
    KzaCore::CLuaInterpreter known(false, L"bench", true);
    lua_State* bare = luaL_newstate();
    Load(known.L());
    Load(bare);
    const Bench::CBest best = Bench::BestOf(
        kTurns, [&] { Call(known.L()); }, [&] { Call(bare); });
    Bench::Row("Lua calls with the call chain at hand (peer: bare state)",
               best.ours * 1e3, best.peer * 1e3, "ms", "<=1.01");
    lua_close(bare);
    return 0;
}
