// SPDX-License-Identifier: Apache-2.0
//
// Samples of the Lua call stack, weighted by CPU time.
//
// A file of samples has two kinds of lines. "F <line> <source>\t<name>" is a
// function: the line of its definition, the name of the source, and its own
// name, empty when Lua knows none. Functions are numbered from 0 in the order
// of these lines. "S <ns> <number>..." is a sample: the CPU time since the
// sample before, in nanoseconds, and the functions of the stack from the
// outermost on. A sample with "-" in front of the first number lacks the outer
// part of a deep stack.
//
// Threads: the one that owns the state.

#pragma once

#include <chrono>
#include <string>

struct lua_State;

namespace KzaCore
{

/// Writes samples of a state and its coroutines to a file, each one as it is
/// taken, for the rest of the process's life. Puts other functions into the
/// table `coroutine`, which do the same and note which coroutine runs. To be
/// called once in a process.
///
/// \param period  CPU time between two samples. A timer of the system may be
///                coarser; then a sample stands for more time.
/// \param error   Out: the reason of a failure.
///
/// \return false when the file cannot be made or the system has no timer.
[[nodiscard]] bool StartLuaProfile(lua_State* L,
                                   const std::string& path,
                                   std::chrono::nanoseconds period,
                                   std::string& error);

} // namespace KzaCore
