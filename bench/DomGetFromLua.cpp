// SPDX-License-Identifier: Apache-2.0
//
// What does dom:Get cost a script?
//
// Peer: a method that checks its userdata with luaL_checkudata, does the same
// look-up in a std::unordered_map and answers in the same way; both are called
// in a loop in Lua, less the time of the empty loop. The time is that of the
// processor, as nothing here waits.

#include "Bench.h"

#include "kza_core/Dom.h"

#include <lua.hpp>

#include <unordered_map>
#include <variant>

using namespace KzaCore;

namespace
{

constexpr int kTurns = 60;
constexpr double kCalls = 1e5; // of a turn

using Content = std::variant<std::string, bool, long long>;
using Map = std::unordered_map<std::string, Content>;

int PeerGet(lua_State* L)
{
    const Map& map = **static_cast<Map**>(luaL_checkudata(L, 1, "Peer"));
    size_t length = 0;
    const char* const key = luaL_checklstring(L, 2, &length);
    const auto found = map.find(std::string(key, length));
    if (found == map.end())
        lua_pushnil(L);
    else if (const auto* text = std::get_if<std::string>(&found->second))
        lua_pushlstring(L, text->data(), text->size());
    else
        lua_pushboolean(L, std::get<bool>(found->second) ? 1 : 0);
    return 1;
}

void PushPeer(lua_State* L, Map& map)
{
    *static_cast<Map**>(lua_newuserdata(L, sizeof(Map*))) = &map;
    luaL_newmetatable(L, "Peer");
    lua_newtable(L);
    lua_pushcfunction(L, PeerGet);
    lua_setfield(L, -2, "Get");
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
}

double LoopSeconds(lua_State* L, const char* body)
{
    const std::string source =
        std::string("local s = ... for i = 1, 1e5 do ") + body + " end";
    if (luaL_loadstring(L, source.c_str()) != LUA_OK)
        std::printf("%s\n", lua_tostring(L, -1));
    lua_pushvalue(L, 1);
    return Bench::ProcessorSeconds([L] { lua_call(L, 1, 0); });
}

double Nanoseconds(lua_State* L, const char* body)
{
    double call = 1e9;
    double loop = 1e9;
    for (int i = 0; i < kTurns; ++i)
    {
        call = std::min(call, LoopSeconds(L, body));
        loop = std::min(loop, LoopSeconds(L, "local v = s"));
    }
    return (call - loop) / kCalls * 1e9;
}

} // namespace

int main()
{
    CDom* const dom = CDom::New(nullptr, nullptr, nullptr, false);
    Map map;
    dom->Set("agent.flag", true);
    dom->Set("agent.text", "short text");
    map["agent.flag"] = true;
    map["agent.text"] = std::string("short text");

    lua_State* const ours = luaL_newstate();
    lua_State* const peer = luaL_newstate();
    PushDom(ours, dom);
    PushPeer(peer, map);

    const char* const flag = "local v = s:Get('agent.flag')";
    const char* const text = "local v = s:Get('agent.text')";
    Bench::Row("dom:Get of a boolean", Nanoseconds(ours, flag),
               Nanoseconds(peer, flag), "ns", "ours<=100");
    Bench::Row("dom:Get of a short string", Nanoseconds(ours, text),
               Nanoseconds(peer, text), "ns", "ours<=130");

    lua_close(ours);
    lua_close(peer);
    dom->Release();
    return 0;
}
