// SPDX-License-Identifier: Apache-2.0
//
// A limit for the time of a test written in Lua.
//
// The limit is checked by a hook after a number of instructions, and by
// dom:Wait and dom:Sleep. When the limit is over, the check raises an error. If
// the test catches it, the next check raises it again.
//
// Threads: each thread has a limit of its own.

#pragma once

#include <chrono>
#include <optional>

struct lua_State;

namespace KzaCore
{

/// Sets the limit of the calling thread. The destructor restores the limit
/// before.
class CTestLimit
{
public:
    explicit CTestLimit(std::chrono::nanoseconds time);
    ~CTestLimit();

    CTestLimit(const CTestLimit&) = delete;
    CTestLimit& operator=(const CTestLimit&) = delete;

    /// A time to wait, shortened to the time until the limit.
    [[nodiscard]] static std::chrono::milliseconds Bounded(
        std::chrono::milliseconds time);

    /// Whether a limit is set and over.
    [[nodiscard]] static bool IsOver();

    /// Raises an error when the limit is over. The message begins with the
    /// place of the function at a level of the stack; see luaL_where().
    static void Check(lua_State* L, int level);

private:
    using Clock = std::chrono::steady_clock;

    struct CLimit
    {
        Clock::time_point end;
        std::chrono::nanoseconds time;
    };

    static thread_local std::optional<CLimit> s_limit;

    const std::optional<CLimit> m_before;
};

} // namespace KzaCore
