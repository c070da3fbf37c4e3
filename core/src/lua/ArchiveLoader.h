// SPDX-License-Identifier: Apache-2.0
//
// The searcher that finds Lua modules in the archives of `app.lua.zippath`.
//
// A module `a.b` is the entry `a/b.lua`, else `a/b/init.lua`, of the first
// archive that has one of them. Its chunk has the name `@<archive>/a/b.lua`,
// and gets that place as its second argument.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CArchiveSet;
class CDom;

/// Adds the searcher and a set of archives to a state. A second call replaces
/// the set.
void InstallArchiveLoader(lua_State* L, CDom& dom);

/// The state's set of archives, updated to the present `app.lua.zippath`; null
/// when no loader was installed, or a script has removed it. Owned by the
/// state.
CArchiveSet* ArchivesOf(lua_State* L);

} // namespace KzaCore
