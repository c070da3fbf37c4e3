// SPDX-License-Identifier: Apache-2.0
//
// The time that a test written in Lua may take.
//
// Lua looks at the limit every so many instructions, from a hook, and where it
// waits for a key or sleeps. Code that catches the error of a limit that is
// over gets it again, until the call that set the limit has ended.
//
// Threads: each has a limit of its own.

#pragma once

#include <chrono>
#include <optional>

struct lua_State;

namespace KzaCore
{

/// Sets a limit for the calling thread; the one before is back when the object
/// goes.
class CTestLimit
{
public:
    explicit CTestLimit(std::chrono::nanoseconds time);
    ~CTestLimit();

    CTestLimit(const CTestLimit&) = delete;
    CTestLimit& operator=(const CTestLimit&) = delete;

    /// A time to wait, cut to what the limit leaves.
    [[nodiscard]] static std::chrono::milliseconds Bounded(
        std::chrono::milliseconds time);

    /// Whether there is a limit and it is over.
    [[nodiscard]] static bool IsOver();

    /// Raises the error of a limit that is over, as one of the function at a
    /// level of the stack; see lua_getstack(). Returns when it is not over.
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
