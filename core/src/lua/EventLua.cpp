// SPDX-License-Identifier: Apache-2.0
//
// Conversion between agent events and Lua tables.
//
// The layout of the Lua stack: AgentEventWrite has the domain at index 1 and
// the script's table at index 2. Each field that it reads stays above them
// until it returns, so that the collector does not free the field's text.
// AgentEvents builds its result on top: the array, and above it the table of
// one event at a time, which is put into the array before the next one is made.
//
// No state is kept between two calls. A wrong field is a Lua error, which
// unwinds these functions like an exception; the event is stored only after
// every field has been accepted.

#include "lua/EventLua.h"

#include "events/EventStore.h"
#include "kza_core/AgentEvent.h"
#include "kza_core/Dom.h"
#include "kza_core/Time.h"
#include "lua/DomObject.h"
#include "lua/LuaPush.h"

#include <lua.hpp>

#include <cmath>
#include <cstdint>
#include <limits>

namespace KzaCore
{

namespace
{

// Pushes a field of the table at index 2 and raises an error unless it has the
// type.
void PushField(lua_State* L, const char* field, int type)
{
    lua_getfield(L, 2, field);
    if (lua_type(L, -1) != type)
    {
        luaL_argerror(L, 2,
                      lua_pushfstring(L, "%s expected for field '%s', got %s",
                                      lua_typename(L, type), field,
                                      luaL_typename(L, -1)));
    }
}

std::string TextField(lua_State* L, const char* field)
{
    PushField(L, field, LUA_TSTRING);
    std::size_t length = 0;
    const char* const text = lua_tolstring(L, -1, &length);
    return {text, length};
}

std::uint32_t NumberField(lua_State* L, const char* field)
{
    constexpr lua_Number kHighest = std::numeric_limits<std::uint32_t>::max();
    PushField(L, field, LUA_TNUMBER);
    const lua_Number value = lua_tonumber(L, -1);
    if (!(value >= 0 && value <= kHighest && std::floor(value) == value))
    {
        luaL_argerror(L, 2,
                      lua_pushfstring(L,
                                      "integer from 0 to 4294967295 expected "
                                      "for field '%s'",
                                      field));
    }
    return static_cast<std::uint32_t>(value);
}

// Sets the time of the event. As for every attribute, the null mark must be
// cleared, else the attribute counts as absent.
void SetTime(CAgentEvent& event)
{
    event.m_timeMs = TimeNowMillis();
    event.m_time = static_cast<std::int32_t>(event.m_timeMs / 1000);
    event.SetAttributeNull(&event.m_timeMs, false);
    event.SetAttributeNull(&event.m_time, false);
}

std::int64_t OptionalInteger(lua_State* L, int arg, std::int64_t otherwise)
{
    if (lua_isnoneornil(L, arg))
        return otherwise;
    constexpr lua_Number kHighest =
        9007199254740992.0; // whole numbers end here
    const lua_Number value = luaL_checknumber(L, arg);
    luaL_argcheck(L,
                  value >= 0 && value <= kHighest && std::floor(value) == value,
                  arg, "not a count");
    return static_cast<std::int64_t>(value);
}

// Sets a field of the table on top of the stack.
void SetNumber(lua_State* L, const char* field, std::int64_t value)
{
    lua_pushnumber(L, static_cast<lua_Number>(value));
    lua_setfield(L, -2, field);
}

// Pushes the table of an event.
void PushEvent(lua_State* L, const CStoredEvent& event)
{
    lua_createtable(L, 0, 6);
    SetNumber(L, "id", event.id);
    SetNumber(L, "number", event.number);
    SetNumber(L, "severity", event.severity);
    SetNumber(L, "time", event.time);
    SetNumber(L, "time_ms", event.timeMs);
    PushText(L, event.text);
    lua_setfield(L, -2, "text");
}

} // namespace

void PushEvents(lua_State* L, const std::vector<CStoredEvent>& events)
{
    lua_createtable(L, static_cast<int>(events.size()), 0);
    int at = 0;
    for (const CStoredEvent& event : events)
    {
        PushEvent(L, event);
        lua_rawseti(L, -2, ++at);
    }
}

int LuaAgentEventWrite(lua_State* L)
{
    CDom& dom = DomOfMethod(L);
    luaL_checktype(L, 2, LUA_TTABLE);
    CAgentEvent event;
    event.m_text = TextField(L, "text");
    event.SetAttributeNull(&event.m_text, false);
    event.m_number = NumberField(L, "number");
    event.SetAttributeNull(&event.m_number, false);
    event.m_severity = NumberField(L, "severity");
    event.SetAttributeNull(&event.m_severity, false);
    SetTime(event);
    lua_pushnumber(L, static_cast<lua_Number>(dom.AgentEventWrite(event)));
    return 1;
}

int LuaAgentEvents(lua_State* L)
{
    const CDom& dom = DomOfMethod(L);
    const std::int64_t afterId = OptionalInteger(L, 2, 0);
    const std::int64_t limit = OptionalInteger(L, 3, -1);
    std::vector<CStoredEvent> events;
    std::string error;
    if (!ReadEvents(dom, afterId, limit, events, error))
        return PushFailure(L, error);
    PushEvents(L, events);
    return 1;
}

} // namespace KzaCore
