// SPDX-License-Identifier: Apache-2.0
//
// Lua's message names the method and not the object. When the call fails, two
// neighbouring registers of the calling function hold nil, in the place of the
// method, and the object. All such pairs are examined; an unrelated pair is
// unlikely to have a method of a similar name.

#include "lua/MethodHint.h"

#include <lua.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

namespace KzaCore
{

namespace
{

// The name in "…attempt to call method 'name' (a nil value)"; empty when the
// message is another.
std::string_view MissingMethod(std::string_view message)
{
    constexpr std::string_view kBefore = "attempt to call method '";
    constexpr std::string_view kAfter = "' (a nil value)";
    const std::size_t begin = message.rfind(kBefore);
    if (begin == std::string_view::npos)
        return {};
    message.remove_prefix(begin + kBefore.size());
    const std::size_t end = message.find(kAfter);
    const bool isWhole =
        end != std::string_view::npos && end + kAfter.size() == message.size();
    return isWhole ? message.substr(0, end) : std::string_view();
}

char Lower(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// The number of letters to be inserted, removed, replaced or swapped with their
// neighbour to turn one name into the other; case is ignored.
std::size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<std::size_t>> cost(
        a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t j = 0; j <= b.size(); ++j)
        {
            if (i == 0 || j == 0)
            {
                cost[i][j] = i + j;
                continue;
            }
            const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) &&
                Lower(a[i - 2]) == Lower(b[j - 1]))
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    return cost[a.size()][b.size()];
}

// Looks for the name that is closest to another one.
class CGuess
{
public:
    explicit CGuess(std::string_view name)
        : m_name(name), m_most(name.size() < 5 ? 1 : 2)
    {
    }

    [[nodiscard]] const std::string& Best() const { return m_best; }

    void Try(std::string_view candidate)
    {
        // Names of very different length cannot be close.
        if (candidate.size() > m_name.size() + m_most ||
            m_name.size() > candidate.size() + m_most)
            return;
        const std::size_t distance = Distance(m_name, candidate);
        const bool isCloser = m_best.empty() || distance < m_distance ||
                              (distance == m_distance && candidate < m_best);
        if (distance > m_most || !isCloser)
            return;
        m_best = candidate;
        m_distance = distance;
    }

private:
    const std::string_view m_name;
    const std::size_t m_most; // letters that may differ
    std::string m_best;
    std::size_t m_distance = 0;
};

// Tries the names of the functions in the table on top of the stack.
void TryFields(lua_State* L, CGuess& guess)
{
    lua_pushnil(L);
    while (lua_next(L, -2) != 0)
    {
        std::size_t length = 0;
        if (lua_isfunction(L, -1) && lua_type(L, -2) == LUA_TSTRING)
        {
            const char* const name = lua_tolstring(L, -2, &length);
            guess.Try({name, length});
        }
        lua_pop(L, 1);
    }
}

// Replaces the value on top of the stack by the `__index` of its metatable;
// false when that is no table.
bool ReplaceByIndex(lua_State* L)
{
    if (lua_getmetatable(L, -1) == 0)
        return false;
    lua_replace(L, -2);
    lua_pushliteral(L, "__index");
    lua_rawget(L, -2);
    lua_replace(L, -2);
    return lua_istable(L, -1);
}

// Tries the methods of the value on top of the stack, which is popped.
void TryMethods(lua_State* L, CGuess& guess)
{
    constexpr int kLongestChain = 10; // a chain of `__index` may be a ring
    bool more = lua_istable(L, -1) || ReplaceByIndex(L);
    for (int i = 0; more && i < kLongestChain; ++i)
    {
        TryFields(L, guess);
        more = ReplaceByIndex(L);
    }
    lua_pop(L, 1);
}

} // namespace

std::string MethodHint(lua_State* L, int index)
{
    std::size_t length = 0;
    const char* const message = lua_tolstring(L, index, &length);
    const std::string_view name = MissingMethod({message, length});
    lua_Debug caller = {};
    if (name.empty() || lua_getstack(L, 1, &caller) == 0 ||
        lua_getinfo(L, "S", &caller) == 0 || *caller.what == 'C')
        return "";

    CGuess guess(name);
    bool afterNil = false;
    for (int i = 1; lua_getlocal(L, &caller, i) != nullptr; ++i)
    {
        const bool isNil = lua_isnil(L, -1);
        if (afterNil && !isNil)
            TryMethods(L, guess);
        else
            lua_pop(L, 1);
        afterNil = isNil;
    }
    return guess.Best().empty() ? "" : ", did you mean '" + guess.Best() + "'?";
}

} // namespace KzaCore
