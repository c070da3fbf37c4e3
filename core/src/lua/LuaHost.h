// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.host": the few things that the shipped Lua tools need
// and that Lua's own libraries lack, so that they work on a host where no
// further module is installed.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Makes `require("kza.host")` answer in a state, through `package.preload`.
/// Raises a Lua error when memory is short.
void PreloadLuaHost(lua_State* L);

} // namespace KzaCore
