// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.probe": what the runner of tests needs inside the state
// in which they run. Nothing of it is at work before it is asked for.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Makes `require("kza.probe")` answer in a state, through `package.preload`.
/// Raises a Lua error when memory is short.
void PreloadLuaProbe(lua_State* L);

} // namespace KzaCore
