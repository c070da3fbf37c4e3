// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.startup": the agent's own parsers of the command line and
// of configuration files, for tools that examine another agent of the host.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

/// Registers the module in the state's `package.preload`. Raises a Lua error
/// when memory is short.
///
///     options(words)         array of {name=, value=}, one for each option,
///                            in their order: its long name and its value, nil
///                            for a switch; the field `words` has the words
///                            that are no options. nil and a text for a command
///                            line that a start would refuse.
///     configuration(path)    array of {group=, name=, value=}, the entries of
///                            one file; empty when it cannot be read
void PreloadLuaStartup(lua_State* L);
