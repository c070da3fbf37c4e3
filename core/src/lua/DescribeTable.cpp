// SPDX-License-Identifier: Apache-2.0

#include "lua/DescribeTable.h"

#include <lua.hpp>

#include <algorithm>
#include <cctype>
#include <tuple>
#include <vector>

namespace KzaCore
{

namespace
{

constexpr int kMostFields = 20;
constexpr int kDepth = 2;
constexpr char kMore[] = "\u2026";

struct CKey
{
    bool isText;
    lua_Number number;
    std::string text;

    bool operator<(const CKey& other) const
    {
        return std::tie(isText, number, text) <
               std::tie(other.isText, other.number, other.text);
    }
};

bool IsName(const std::string& text)
{
    const auto belongs = [](unsigned char c)
    { return std::isalnum(c) != 0 || c == '_'; };
    return !text.empty() &&
           std::isdigit(static_cast<unsigned char>(text[0])) == 0 &&
           std::all_of(text.begin(), text.end(), belongs);
}

// The text quoted as by Lua's %q, but on one line.
std::string Quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text)
        if (c == '\n')
            result += "\\n";
        else if (c == '\0')
            result += "\\0";
        else if (c == '"' || c == '\\')
            result += std::string("\\") + c;
        else
            result += c;
    return result + "\"";
}

std::string TextAt(lua_State* L, int index)
{
    std::size_t length = 0;
    const char* const text = lua_tolstring(L, index, &length);
    return {text, length};
}

std::string NumberText(lua_State* L, lua_Number number)
{
    lua_pushnumber(L, number);
    std::string text = TextAt(L, -1);
    lua_pop(L, 1);
    return text;
}

std::string KeyText(lua_State* L, const CKey& key)
{
    if (!key.isText)
        return "[" + NumberText(L, key.number) + "]";
    return IsName(key.text) ? key.text : "[" + Quoted(key.text) + "]";
}

// Describes a table and the tables in it, with a limit to the fields of all of
// them together.
class CDescription
{
public:
    explicit CDescription(lua_State* L) : m_L(L) {}

    /// \param depth  The number of levels of tables to show. Of a table below
    ///               them, only whether it is empty is shown.
    std::string Table(int index, int depth)
    {
        bool hasMore = false;
        std::string text;
        for (const CKey& key : Keys(index, hasMore))
        {
            hasMore = hasMore || depth == 0 || m_left == 0;
            if (depth == 0 || m_left == 0)
                break;
            --m_left;
            Separate(text);
            text += KeyText(m_L, key) + " = ";
            PushField(index, key);
            text += Value(depth);
            lua_pop(m_L, 1);
        }
        if (hasMore)
        {
            Separate(text);
            text += kMore;
        }
        return "{" + text + "}";
    }

private:
    static void Separate(std::string& text)
    {
        if (!text.empty())
            text += ", ";
    }

    // The first keys in order: as many as may be shown and one more. The others
    // are dropped, because a table may have millions.
    std::vector<CKey> Keys(int index, bool& hasOthers)
    {
        std::vector<CKey> keys;
        lua_pushnil(m_L);
        while (lua_next(m_L, index) != 0)
        {
            lua_pop(m_L, 1);
            const int type = lua_type(m_L, -1);
            if (type == LUA_TNUMBER)
                Add(keys, {false, lua_tonumber(m_L, -1), ""});
            else if (type == LUA_TSTRING)
                Add(keys, {true, 0, TextAt(m_L, -1)});
            else
                hasOthers = true;
        }
        return keys;
    }

    void Add(std::vector<CKey>& keys, CKey key) const
    {
        const auto most = static_cast<std::size_t>(m_left) + 1;
        if (keys.size() == most && !(key < keys.back()))
            return;
        keys.insert(std::upper_bound(keys.begin(), keys.end(), key),
                    std::move(key));
        if (keys.size() > most)
            keys.pop_back();
    }

    void PushField(int index, const CKey& key)
    {
        if (key.isText)
            lua_pushlstring(m_L, key.text.data(), key.text.size());
        else
            lua_pushnumber(m_L, key.number);
        lua_rawget(m_L, index);
    }

    // Describes the value on top of the stack.
    std::string Value(int depth)
    {
        switch (lua_type(m_L, -1))
        {
        case LUA_TSTRING:
            return Quoted(TextAt(m_L, -1));
        case LUA_TNUMBER:
            return NumberText(m_L, lua_tonumber(m_L, -1));
        case LUA_TBOOLEAN:
            return lua_toboolean(m_L, -1) != 0 ? "true" : "false";
        case LUA_TTABLE:
            return Table(lua_gettop(m_L), depth - 1);
        default:
            return std::string("(") + luaL_typename(m_L, -1) + ")";
        }
    }

    lua_State* const m_L;
    int m_left = kMostFields;
};

} // namespace

std::string DescribeTable(lua_State* L, int index)
{
    return CDescription(L).Table(lua_absindex(L, index), kDepth);
}

} // namespace KzaCore
