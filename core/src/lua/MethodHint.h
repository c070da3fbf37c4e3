// SPDX-License-Identifier: Apache-2.0
//
// A guess which method was meant by a call of a missing one.
//
// Threads: the one that owns the state.

#pragma once

#include <string>

struct lua_State;

namespace KzaCore
{

/// `, did you mean 'Get'?` when the error message at `index` is Lua's "attempt
/// to call method 'get'" and the object has a method of a similar name, one
/// that differs in case or by a letter or two; else nothing.
///
/// For a message handler: reads the local values of the function that raised
/// the error, without calling any metamethod.
std::string MethodHint(lua_State* L, int index);

} // namespace KzaCore
