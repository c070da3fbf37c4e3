// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.probe": limits for tests, coverage and profiles. kzrun
// uses it inside the agent that runs a project. Until a function of the module
// is called, nothing of it is active.
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
