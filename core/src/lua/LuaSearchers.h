// SPDX-License-Identifier: Apache-2.0
//
// Where `require` looks, and in which order:
//   1. package.preload
//   2. the templates named on the command line
//   3. archives                         (ArchiveLoader.h)
//   4. the rest of package.path
//   5. package.cpath, then the all-in-one loader, both Lua's own
//
// So what an author names wins, then the agent's own archives, then the host.
//
// Threads: the one that owns the state.

#pragma once

#include <string>

struct lua_State;

namespace KzaCore
{

/// Sets `package.path` and `package.cpath` as CLuaInterpreter::SetPackagePaths
/// documents, and the searchers 2 and 4. May be called again.
void SetSearchPaths(lua_State* L,
                    const std::string& bin,
                    const std::string& path,
                    const std::string& cpath);

/// Puts the function on top of the stack, which is popped, before the searcher
/// of the rest of `package.path`.
void InsertArchiveSearcher(lua_State* L);

} // namespace KzaCore
