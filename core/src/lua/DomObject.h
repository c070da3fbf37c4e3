// SPDX-License-Identifier: Apache-2.0
//
// The domain as a value of Lua, and how a method of its class finds it.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CDom;

/// Registry name of the class's metatable.
inline constexpr char kDomClass[] = "SLB.Dom";

/// What the userdata holds. The domain belongs to the application and outlives
/// every such reference.
struct CDomReference
{
    CDom* dom;
};

/// The domain that the running method was called on: argument 1, compared with
/// the class in upvalue 1. Raises the usual Lua error for anything else.
CDom& DomOfMethod(lua_State* L);

} // namespace KzaCore
