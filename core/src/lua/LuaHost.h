// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.host": functions that the shipped Lua tools need and that
// Lua's own libraries lack. With it, the tools work on a host where no further
// module is installed.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Registers the module in the state's `package.preload`. Raises a Lua error
/// when memory is short.
void PreloadLuaHost(lua_State* L);

} // namespace KzaCore
