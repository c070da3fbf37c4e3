// SPDX-License-Identifier: Apache-2.0
//
// Keeps C++ exceptions out of Lua.
//
// Lua swallows an exception that crosses a protected call and says nothing.
// Guarded<F> is the C function F whose exceptions become Lua errors with their
// text. Lua's own errors are not derived from std::exception and pass.

#pragma once

#include <lua.hpp>

#include <exception>

namespace KzaCore
{

template <lua_CFunction F>
int Guarded(lua_State* L)
{
    try
    {
        return F(L);
    }
    catch (const std::exception& error)
    {
        lua_settop(L, 0); // room for the message, whatever F had pushed
        lua_pushstring(L, error.what());
    }
    return lua_error(L);
}

} // namespace KzaCore
