// SPDX-License-Identifier: Apache-2.0

#include "lua/DomLua.h"

#include "base/Bytes.h"
#include "base/PluginWorkdir.h"
#include "domain/DomStore.h"
#include "domain/StoreOf.h"
#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Runnable.h"
#include "kza_core/Trace.h"
#include "lua/DomObject.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"
#include "lua/TestLimit.h"
#include "process/WakeUp.h"

#include <lua.hpp>

#include <algorithm>
#include <cmath>
#include <optional>

namespace KzaCore
{

namespace
{

constexpr int kSeen = lua_upvalueindex(2);

std::string_view CheckBytes(lua_State* L, int arg)
{
    size_t length = 0;
    const char* const bytes = luaL_checklstring(L, arg, &length);
    return {bytes, length};
}

// The milliseconds in an argument, which may have a fraction, be negative or
// infinite.
std::chrono::milliseconds CheckTime(lua_State* L, int arg)
{
    constexpr lua_Number kLongest = 1e15;
    const lua_Number time = luaL_checknumber(L, arg);
    luaL_argcheck(L, !std::isnan(time), arg, "not a number of milliseconds");
    return std::chrono::milliseconds(static_cast<std::int64_t>(
        std::ceil(std::clamp<lua_Number>(time, 0, kLongest))));
}

void Push(lua_State* L, const DomContent& content)
{
    if (const auto* const text = std::get_if<std::string>(&content))
        PushText(L, *text);
    else if (const auto* const flag = std::get_if<bool>(&content))
        lua_pushboolean(L, *flag ? 1 : 0);
    else
        lua_pushnumber(
            L, static_cast<lua_Number>(*std::get_if<long long>(&content)));
}

int Get(lua_State* L)
{
    const CDomStore& store = StoreOf(DomOfMethod(L));
    const bool isSet = store.Read(
        CheckBytes(L, 2), [L](const DomContent& content) { Push(L, content); });
    if (!isSet)
        lua_pushnil(L);
    return 1;
}

// Raises the error for a value that a domain cannot hold.
int RefuseValue(lua_State* L, const char* key, const char* what)
{
    return luaL_argerror(
        L, 3,
        lua_pushfstring(L,
                        "string, boolean, integer or nil expected for key "
                        "'%s', got %s",
                        key, what));
}

void SetNumber(lua_State* L, CDomStore& store, std::string_view key)
{
    // The bounds of 64-bit integers, as numbers.
    constexpr lua_Number kLow = -9223372036854775808.0;
    constexpr lua_Number kPastHigh = 9223372036854775808.0;
    const lua_Number value = lua_tonumber(L, 3);
    if (value >= kLow && value < kPastHigh && std::floor(value) == value)
        store.SetInteger(key, static_cast<long long>(value));
    else
        RefuseValue(L, key.data(), lua_pushfstring(L, "%f", value));
}

int Set(lua_State* L)
{
    CDomStore& store = StoreOf(DomOfMethod(L));
    const std::string_view key = CheckBytes(L, 2);
    switch (lua_type(L, 3))
    {
    case LUA_TNIL:
        store.Remove(key);
        break;
    case LUA_TBOOLEAN:
        store.SetBool(key, lua_toboolean(L, 3) != 0);
        break;
    case LUA_TNUMBER:
        SetNumber(L, store, key);
        break;
    case LUA_TSTRING:
        store.SetString(key, CheckBytes(L, 3));
        break;
    default:
        RefuseValue(L, key.data(), luaL_typename(L, 3));
    }
    return 0;
}

int Keys(lua_State* L)
{
    const CDomStore& store = StoreOf(DomOfMethod(L));
    PushTexts(L, store.Keys(lua_isnoneornil(L, 2) ? std::string_view()
                                                  : CheckBytes(L, 2)));
    return 1;
}

// Pushes the table of the generations that this interpreter has seen, by key.
// There are two for each domain; `table` is the name of one.
void PushSeen(lua_State* L, const void* table)
{
    lua_rawgetp(L, kSeen, table);
    if (!lua_isnil(L, -1))
        return;
    lua_pop(L, 1);
    lua_newtable(L);
    lua_pushvalue(L, -1);
    lua_rawsetp(L, kSeen, table);
}

// The generation that a table holds for the key at index 2, if any. A Lua
// number is exact for every count of changes that can be reached.
std::optional<std::uint64_t> GenerationIn(lua_State* L, int table)
{
    lua_pushvalue(L, 2);
    lua_rawget(L, table);
    std::optional<std::uint64_t> generation;
    if (!lua_isnil(L, -1))
        generation = static_cast<std::uint64_t>(lua_tonumber(L, -1));
    lua_pop(L, 1);
    return generation;
}

void SetGenerationIn(lua_State* L, int table, std::uint64_t generation)
{
    lua_pushvalue(L, 2);
    lua_pushnumber(L, static_cast<lua_Number>(generation));
    lua_rawset(L, table);
}

// Two tables hold the generations that were seen. The one named by the domain
// holds changes that were reported to the script. While a stop is announced, a
// change ends a wait without being reported; the one named by the store holds
// such changes. So the next wait does not end at once because of the change,
// and the first wait after the announcement was withdrawn reports it.
int Wait(lua_State* L)
{
    constexpr int kReported = 4;
    constexpr int kUnreported = 5;

    CDom& dom = DomOfMethod(L);
    CDomStore& store = StoreOf(dom);
    const std::string_view key = CheckBytes(L, 2);
    const auto timeout = CTestLimit::Bounded(CheckTime(L, 3));
    lua_settop(L, 3);
    PushSeen(L, &dom);
    PushSeen(L, &store);

    const auto known = GenerationIn(L, kReported);
    const std::uint64_t reported = known ? *known : store.Generation(key);
    std::uint64_t seen = reported;
    if (CWakeUp::Current()->IsStopAnnounced())
        seen = std::max(seen, GenerationIn(L, kUnreported).value_or(seen));
    const bool changed = store.Wait(key, timeout, seen);

    SetGenerationIn(L, kReported, changed ? seen : reported);
    if (!changed && seen != reported)
        SetGenerationIn(L, kUnreported, seen);
    CTestLimit::Check(L, 1);
    lua_pushboolean(L, changed ? 1 : 0);
    return 1;
}

int Sleep(lua_State* L)
{
    DomOfMethod(L);
    const auto time = CTestLimit::Bounded(CheckTime(L, 2));
    lua_pushboolean(L, CRunnable::SleepFor(time) ? 1 : 0);
    CTestLimit::Check(L, 1);
    return 1;
}

int GetPluginWorkdir(lua_State* L)
{
    const CDom& dom = DomOfMethod(L);
    const wxString plugin = TextOfBytes(CheckBytes(L, 2));
    luaL_argcheck(L, IsPluginName(plugin), 2, "not the name of a plugin");
    wxString path;
    wxString error;
    if (MakePluginWorkdir(dom.GetWxString(DomKey::kPathWork), plugin,
                          dom.OwnerRule(), path, error))
    {
        PushText(L, BytesOfText(path));
        return 1;
    }
    return PushFailure(L, BytesOfText(error));
}

ELogLevel CheckLevel(lua_State* L, int arg)
{
    static constexpr std::pair<std::string_view, ELogLevel> kLevels[] = {
        {"error", ELogLevel::Error},     {"warning", ELogLevel::Warning},
        {"message", ELogLevel::Message}, {"info", ELogLevel::Info},
        {"verbose", ELogLevel::Verbose}, {"debug", ELogLevel::Debug}};
    const std::string_view given = CheckBytes(L, arg);
    for (const auto& [name, level] : kLevels)
        if (name == given)
            return level;
    luaL_argerror(L, arg,
                  lua_pushfstring(L,
                                  "error, warning, message, info, verbose or "
                                  "debug expected, got '%s'",
                                  given.data()));
    return ELogLevel::Error; // not reached
}

int Log(lua_State* L)
{
    DomOfMethod(L);
    const ELogLevel level = CheckLevel(L, 2);
    LogToDisk(level, wxString(), TextOfBytes(CheckBytes(L, 3)));
    return 0;
}

const char* FunctionName(const lua_Debug& caller)
{
    if (caller.name != nullptr)
        return caller.name;
    return *caller.what == 'm' ? "main chunk" : "?";
}

// The name of the caller's file. For a chunk that was loaded from a string, the
// source is its whole text, so the short form is used.
const char* SourceName(const lua_Debug& caller)
{
    const bool isFile = *caller.source == '@';
    return isFile ? caller.source + 1
                  : static_cast<const char*>(caller.short_src);
}

int Trace(lua_State* L)
{
    DomOfMethod(L);
    const wxString component = TextOfBytes(CheckBytes(L, 2));
    const std::string_view text = CheckBytes(L, 3);
    if (!LogTraceIsEnabled(component))
        return 0;
    lua_Debug caller = {};
    const bool isKnown =
        lua_getstack(L, 1, &caller) != 0 && lua_getinfo(L, "Sln", &caller) != 0;
    if (isKnown)
        LogTrace(component, SourceName(caller), caller.currentline,
                 FunctionName(caller), TextOfBytes(text));
    else
        LogTrace(component, "?", 0, "?", TextOfBytes(text));
    return 0;
}

int TraceIsEnabled(lua_State* L)
{
    DomOfMethod(L);
    const wxString component = TextOfBytes(CheckBytes(L, 2));
    lua_pushboolean(L, LogTraceIsEnabled(component) ? 1 : 0);
    return 1;
}

} // namespace

const luaL_Reg kDomMethods[] = {
    {"Get", Guarded<Get>},
    {"Set", Guarded<Set>},
    {"Keys", Guarded<Keys>},
    {"Wait", Guarded<Wait>},
    {"Sleep", Guarded<Sleep>},
    {"GetPluginWorkdir", Guarded<GetPluginWorkdir>},
    {"Log", Guarded<Log>},
    {"Trace", Guarded<Trace>},
    {"TraceIsEnabled", Guarded<TraceIsEnabled>},
    {nullptr, nullptr},
};

} // namespace KzaCore
