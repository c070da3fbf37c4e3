// SPDX-License-Identifier: Apache-2.0

#include "lua/ArchiveLoader.h"

#include "archive/ArchiveSet.h"
#include "kza_core/Dom.h"
#include "lua/LuaGuard.h"
#include "lua/LuaSearchers.h"

#include <lua.hpp>

#include <algorithm>
#include <new>

namespace KzaCore
{

namespace
{

// Registry name of the userdata that holds a CArchives.
constexpr char kArchives[] = "kza.archives";

struct CArchives
{
    CDom& dom;
    CArchiveSet set;
};

int CollectCB(lua_State* L)
{
    static_cast<CArchives*>(lua_touserdata(L, 1))->~CArchives();
    lua_pushnil(L); // a finalizer that runs later must not find the archives
    lua_setmetatable(L, 1);
    return 0;
}

// The archives in the userdata on top of the stack, which is popped; null for
// any other value. Scripts can reach the registry, so it may hold another value
// under the name.
CArchives* TakeArchives(lua_State* L)
{
    CArchives* archives = nullptr;
    if (lua_getmetatable(L, -1) != 0)
    {
        lua_pushliteral(L, "__gc");
        lua_rawget(L, -2);
        if (lua_tocfunction(L, -1) == CollectCB)
            archives = static_cast<CArchives*>(lua_touserdata(L, -3));
        lua_pop(L, 2);
    }
    lua_pop(L, 1);
    return archives;
}

// The source without a byte-order mark and without a first line that begins
// with '#'; Lua's own loader of files skips both, too. The line break of that
// line stays, so that line numbers are right.
std::string_view Source(std::string_view bytes)
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (bytes.substr(0, kMark.size()) == kMark)
        bytes.remove_prefix(kMark.size());
    if (!bytes.empty() && bytes.front() == '#')
        bytes.remove_prefix(std::min(bytes.find('\n'), bytes.size()));
    return bytes;
}

int LoadEntry(lua_State* L, const std::string& bytes, const std::string& place)
{
    const std::string_view source = Source(bytes);
    const std::string name = "@" + place;
    if (luaL_loadbufferx(L, source.data(), source.size(), name.c_str(),
                         nullptr) != LUA_OK)
        return luaL_error(L, "error loading module '%s' from file '%s':\n\t%s",
                          lua_tostring(L, 1), place.c_str(),
                          lua_tostring(L, -1));
    lua_pushlstring(L, place.data(), place.size());
    return 2;
}

int SearcherCB(lua_State* L)
{
    std::string file = luaL_checkstring(L, 1);
    std::replace(file.begin(), file.end(), '.', '/');
    const std::vector<std::string> names = {file + ".lua", file + "/init.lua"};
    CArchiveSet* const archives = ArchivesOf(L);
    if (archives == nullptr)
    {
        lua_pushliteral(L, "\n\tno archives: not in the registry any more");
        return 1;
    }
    std::string bytes;
    std::string place;
    std::string error;
    switch (archives->Read(names, bytes, place, error))
    {
    case CArchiveSet::EResult::Found:
        return LoadEntry(L, bytes, place);
    case CArchiveSet::EResult::Broken:
        return luaL_error(L, "error loading module '%s' from file '%s':\n\t%s",
                          lua_tostring(L, 1), place.c_str(), error.c_str());
    case CArchiveSet::EResult::Missing:
        break;
    }
    const std::string tried = archives->DescribeMiss(names);
    lua_pushlstring(L, tried.data(), tried.size());
    return 1;
}

} // namespace

void InstallArchiveLoader(lua_State* L, CDom& dom)
{
    void* const memory = lua_newuserdata(L, sizeof(CArchives));
    new (memory) CArchives{dom, {}};
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, CollectCB);
    lua_setfield(L, -2, "__gc");
    lua_setmetatable(L, -2);
    lua_setfield(L, LUA_REGISTRYINDEX, kArchives);

    InsertArchiveSearcher(L, Guarded<SearcherCB>);
}

CArchiveSet* ArchivesOf(lua_State* L)
{
    lua_getfield(L, LUA_REGISTRYINDEX, kArchives);
    CArchives* const archives = TakeArchives(L);
    if (archives == nullptr)
        return nullptr;
    archives->set.SetPaths(archives->dom.Get(DomKey::kLuaZipPath));
    archives->set.SetOwnerRule(archives->dom.OwnerRule());
    return &archives->set;
}

void CDom::RegisterLoader(lua_State* L)
{
    InstallArchiveLoader(L, *this);
}

} // namespace KzaCore
