// SPDX-License-Identifier: Apache-2.0
//
// The Lua module "kza.startup": how a start reads the command line and the
// configuration files, for tools that look at another agent of the host.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

/// Makes `require("kza.startup")` answer in a state, through `package.preload`.
/// Raises a Lua error when memory is short.
///
///     options(words)         array of {name=, value=} in the order of the
///     words,
///                            by long names, switches without a value; its
///                            field `words` has those that are no options. nil
///                            and a text for what a start would refuse.
///     configuration(path)    array of {group=, name=, value=}, the entries of
///                            one file; one that cannot be read has none
void PreloadLuaStartup(lua_State* L);
