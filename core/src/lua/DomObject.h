// SPDX-License-Identifier: Apache-2.0
//
// The Lua userdata that refers to a domain, and its use in a method.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CDom;

/// Registry name of the class's metatable.
inline constexpr char kDomClass[] = "SLB.Dom";

/// The content of the userdata. The domain belongs to the application and
/// outlives every such reference.
struct CDomReference
{
    CDom* dom;
};

/// The domain that the running method was called on. Raises Lua's usual error
/// unless argument 1 is an object of the class in upvalue 1.
CDom& DomOfMethod(lua_State* L);

} // namespace KzaCore
