// SPDX-License-Identifier: Apache-2.0
//
// What does a profile cost the program that it samples?
//
// The same work runs in processes of its own, with a profile and without, by
// turns: a profile goes on until the end of its process.

#include "Bench.h"

#include "base/WholeTransfer.h"
#include "kza_core/LuaInterpreter.h"
#include "lua/LuaProfile.h"

#include "support/TempDir.h"

#include <lua.hpp>

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr int kTurns = 7;

// Calls, tables, C functions and coroutines, some frames deep.
constexpr char kScript[] = R"(
local function fib(n)
    if n < 2 then return n end
    return fib(n - 1) + fib(n - 2)
end
local function tables()
    local t = {}
    for i = 1, 3e6 do t[i % 1000] = i end
end
local function texts()
    local t = {}
    for i = 1, 2e5 do t[i % 100] = ("x"):rep(i % 10) .. i end
end
local function deep(n, work)
    if n == 0 then return work() end
    local result = deep(n - 1, work)
    return result
end
for i = 1, 3 do
    deep(20, function() fib(25) tables() texts() end)
    local step = coroutine.wrap(function()
        while true do fib(10) coroutine.yield() end
    end)
    for _ = 1, 2e4 do step() end
end
)";

double Work(bool profiled)
{
    KzaCore::CLuaInterpreter lua(false, L"bench", true);
    const TestSupport::CTempDir dir;
    std::string error;
    if (profiled &&
        !KzaCore::StartLuaProfile(lua.L(), dir.File("samples"),
                                  std::chrono::milliseconds(1), error))
        exit(1);
    return Bench::ProcessorSeconds(
        [&lua]
        {
            if (luaL_dostring(lua.L(), kScript) != 0)
                exit(1);
        });
}

// Seconds of processor time that the work takes in a child.
double InChild(bool profiled)
{
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0)
        exit(1);
    const pid_t child = fork();
    if (child == 0)
    {
        const double seconds = Work(profiled);
        const bool written =
            KzaCore::WriteWhole(pipe[1], &seconds, sizeof seconds) ==
            sizeof seconds;
        _exit(written ? 0 : 1);
    }
    close(pipe[1]);
    double seconds = 0;
    const bool read =
        KzaCore::ReadWhole(pipe[0], &seconds, sizeof seconds) == sizeof seconds;
    close(pipe[0]);
    waitpid(child, nullptr, 0);
    if (!read)
        exit(1);
    return seconds;
}

} // namespace

int main()
{
    Bench::CBest best = {1e9, 1e9};
    for (int i = 0; i < kTurns; ++i)
    {
        best.ours = std::min(best.ours, InChild(true));
        best.peer = std::min(best.peer, InChild(false));
    }
    Bench::Row("Lua under a profile (peer: without)", best.ours * 1e3,
               best.peer * 1e3, "ms", "<=1.05");
    return 0;
}
