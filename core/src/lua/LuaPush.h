// SPDX-License-Identifier: Apache-2.0
//
// Texts, arrays of texts and failures as values of Lua.
//
// Threads: the one that owns the state.

#pragma once

#include <lua.hpp>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

inline void PushText(lua_State* L, std::string_view text)
{
    lua_pushlstring(L, text.data(), text.size());
}

/// Pushes an array of texts.
inline void PushTexts(lua_State* L, const std::vector<std::string>& texts)
{
    lua_createtable(L, static_cast<int>(texts.size()), 0);
    int index = 0;
    for (const std::string& text : texts)
    {
        PushText(L, text);
        lua_rawseti(L, -2, ++index);
    }
}

/// Pushes nil and the reason, as Lua's own libraries do after a failure;
/// returns the number of both.
inline int PushFailure(lua_State* L, std::string_view reason)
{
    lua_pushnil(L);
    PushText(L, reason);
    return 2;
}

/// The argument as a path. A NUL in it is an argument error, because the system
/// would take only the part before.
inline const char* CheckPath(lua_State* L, int index)
{
    std::size_t size = 0;
    const char* const path = luaL_checklstring(L, index, &size);
    luaL_argcheck(L, std::strlen(path) == size, index, "path holds a NUL");
    return path;
}

/// The argument as the words of a command line, the program first.
inline std::vector<std::string> CheckWords(lua_State* L, int index)
{
    luaL_checktype(L, index, LUA_TTABLE);
    std::vector<std::string> words;
    for (std::size_t i = 1; i <= lua_rawlen(L, index); ++i)
    {
        lua_rawgeti(L, index, static_cast<int>(i));
        std::size_t size = 0;
        const char* const word = lua_tolstring(L, -1, &size);
        luaL_argcheck(L, word != nullptr, index, "words expected");
        words.emplace_back(word, size);
        lua_pop(L, 1);
    }
    luaL_argcheck(L, !words.empty(), index, "a program expected");
    return words;
}

} // namespace KzaCore
