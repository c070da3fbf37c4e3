// SPDX-License-Identifier: Apache-2.0
//
// The places where `require` looks for a module, in their order:
//   1. package.preload
//   2. the templates named on the command line
//   3. archives                         (ArchiveLoader.h)
//   4. the rest of package.path
//   5. package.cpath, then the all-in-one loader, both Lua's own
//
// A module in a place that an author names is preferred, then one in the
// agent's archives, then one of the host.
//
// When no module is found, the message lists each file that was tried, as Lua's
// own message does, and the reason beside a file that exists but cannot be
// read.
//
// Threads: the one that owns the state.

#pragma once

#include <lua.hpp>

#include <string>

namespace KzaCore
{

/// Sets `package.path` and `package.cpath` as CLuaInterpreter::SetPackagePaths
/// documents, and the searchers 2 and 4. May be called again.
void SetSearchPaths(lua_State* L,
                    const std::string& bin,
                    const std::string& path,
                    const std::string& cpath);

/// The leading path list: the templates named on the command line.
std::string LeadingPath(lua_State* L);

/// Puts the searcher of archives before that of the rest of `package.path`,
/// unless it is among the searchers already. Raises a Lua error when the
/// package library is not open.
void InsertArchiveSearcher(lua_State* L, lua_CFunction searcher);

} // namespace KzaCore
