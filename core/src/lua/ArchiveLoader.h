// SPDX-License-Identifier: Apache-2.0
//
// The searcher that finds Lua modules in the archives of `app.lua.zippath`.
//
// A module `a.b` is the first of `a/b.lua` and `a/b/init.lua` that an archive
// holds. Its chunk is named `@<archive>/a/b.lua`, and gets that place as its
// second argument.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

class CArchiveSet;
class CDom;

/// Adds the searcher and the set of archives to a state. A second call gives
/// the searcher another set.
void InstallArchiveLoader(lua_State* L, CDom& dom);

/// The state's archives, set to what `app.lua.zippath` holds now; null when no
/// loader was installed, or a script removed it. Owned by the state.
CArchiveSet* ArchivesOf(lua_State* L);

} // namespace KzaCore
