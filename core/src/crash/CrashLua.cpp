// SPDX-License-Identifier: Apache-2.0
//
// Lua tracebacks for dumps.

#include "crash/CrashLua.h"

#include "crash/CrashText.h"

#include <atomic>

#include <lua.hpp>
#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr int kMaxStates = 8;
constexpr int kMaxFrames = 32;
constexpr int kMaxCoroutines = 8;

std::atomic<lua_State*> g_states[kMaxStates];

// Writes a frame in the words of Lua's own traceback.
bool WriteFrame(int out, lua_State* L, lua_Debug& frame)
{
    char buffer[LUA_IDSIZE + 256];
    CCrashText line(buffer, sizeof(buffer) - 1);
    lua_getinfo(L, "nSl", &frame);
    line.Add("  ").Add(frame.short_src).Add(":");
    if (frame.currentline > 0)
        line.AddNumber(frame.currentline).Add(":");
    if (*frame.namewhat != '\0')
        line.Add(" in function '").Add(frame.name).Add("'");
    else if (*frame.what == 'm')
        line.Add(" in main chunk");
    else if (*frame.what == 'C')
        line.Add(" in ?");
    else
        line.Add(" in function <")
            .Add(frame.short_src)
            .Add(":")
            .AddNumber(frame.linedefined)
            .Add(">");
    // A long name is cut; the line break is always there.
    buffer[line.Length()] = '\n';
    return write(out, buffer, line.Length() + 1) > 0;
}

// The coroutine that a state runs, null without one. The state is in the C
// function that resumed the coroutine, and the coroutine is that function's
// first argument (resume) or upvalue (wrap).
lua_State* RunningCoroutine(lua_State* L)
{
    lua_Debug frame;
    if (lua_getstack(L, 0, &frame) == 0)
        return nullptr;
    lua_getinfo(L, "Sf", &frame);
    lua_State* found = nullptr;
    if (*frame.what == 'C' && lua_getupvalue(L, -1, 1) != nullptr)
    {
        found = lua_tothread(L, -1);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    if (*frame.what == 'C' && found == nullptr &&
        lua_getlocal(L, &frame, 1) != nullptr)
    {
        found = lua_tothread(L, -1);
        lua_pop(L, 1);
    }
    const bool runs = found != nullptr && lua_status(found) == LUA_OK &&
                      lua_getstack(found, 0, &frame) != 0;
    return runs ? found : nullptr;
}

bool WriteFrames(int out, lua_State* L)
{
    lua_Debug frame;
    for (int level = 0; level < kMaxFrames && lua_getstack(L, level, &frame);
         level++)
        if (!WriteFrame(out, L, frame))
            return false;
    return true;
}

// The innermost frames are those of the coroutine that was resumed last.
bool WriteState(int out, lua_State* L)
{
    lua_State* chain[kMaxCoroutines] = {L};
    int last = 0;
    while (last + 1 < kMaxCoroutines)
    {
        chain[last + 1] = RunningCoroutine(chain[last]);
        if (chain[last + 1] == nullptr)
            break;
        last++;
    }
    for (; last >= 0; last--)
        if (!WriteFrames(out, chain[last]))
            return false;
    return true;
}

} // namespace

void RememberLuaState(lua_State* L)
{
    for (std::atomic<lua_State*>& slot : g_states)
    {
        lua_State* empty = nullptr;
        if (slot.compare_exchange_strong(empty, L))
            return;
    }
}

void ForgetLuaState(lua_State* L)
{
    for (std::atomic<lua_State*>& slot : g_states)
    {
        lua_State* expected = L;
        if (slot.compare_exchange_strong(expected, nullptr))
            return;
    }
}

void WriteLuaTracebacks(int out)
{
    for (const std::atomic<lua_State*>& slot : g_states)
    {
        lua_State* state = slot.load();
        if (state != nullptr && !WriteState(out, state))
            return;
    }
}

} // namespace KzaCore
