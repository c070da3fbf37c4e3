// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.probe": functions for the runner of tests inside the
// state in which the tests run. None has an effect before it is called.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// Registers the module in the state's `package.preload`. Raises a Lua error
/// when memory is short.
void PreloadLuaProbe(lua_State* L);

} // namespace KzaCore
