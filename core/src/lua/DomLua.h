// SPDX-License-Identifier: Apache-2.0
//
// What the functions of the Lua class "SLB.Dom" share.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CDom;

/// The domain that the running method was called on: argument 1, compared with
/// the class in upvalue 1. Raises the usual Lua error for anything else.
CDom& DomOfMethod(lua_State* L);

} // namespace KzaCore
