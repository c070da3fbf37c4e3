// SPDX-License-Identifier: Apache-2.0

#include "lua/TestLimit.h"

#include <lua.hpp>

#include <algorithm>

namespace KzaCore
{

thread_local std::optional<CTestLimit::CLimit> CTestLimit::s_limit;

CTestLimit::CTestLimit(std::chrono::nanoseconds time) : m_before(s_limit)
{
    s_limit = CLimit{Clock::now() + time, time};
}

CTestLimit::~CTestLimit()
{
    s_limit = m_before;
}

std::chrono::milliseconds CTestLimit::Bounded(std::chrono::milliseconds time)
{
    if (!s_limit)
        return time;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        s_limit->end - Clock::now());
    return std::clamp(left, std::chrono::milliseconds(0), time);
}

bool CTestLimit::IsOver()
{
    return s_limit && Clock::now() >= s_limit->end;
}

void CTestLimit::Check(lua_State* L, int level)
{
    if (!IsOver())
        return;
    const std::chrono::duration<double> seconds = s_limit->time;
    luaL_where(L, level);
    lua_pushfstring(L, "it takes longer than %f s", seconds.count());
    lua_concat(L, 2);
    lua_error(L);
}

} // namespace KzaCore
