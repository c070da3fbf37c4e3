// SPDX-License-Identifier: Apache-2.0
//
// Keeps C++ exceptions out of Lua.
//
// Lua turns an exception that crosses a protected call into an error without a
// message. Guarded<F> calls the C function F and turns its exceptions into Lua
// errors with their text. Lua's own errors are no std::exception and are not
// affected.

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
        lua_settop(L, 0); // F may have filled the stack
        lua_pushstring(L, error.what());
    }
    return lua_error(L);
}

} // namespace KzaCore
