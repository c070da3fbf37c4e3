// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaSearchers.h"

#include "base/SplitList.h"
#include "lua/LuaGuard.h"

#include <lua.hpp>

namespace KzaCore
{

namespace
{

// Registry names: the leading path list (a string) and Lua's compiled-in
// paths, as they were before the first change.
constexpr char kLeadingPath[] = "kza.path.leading";
constexpr char kDefaultPath[] = "kza.path.default";
constexpr char kDefaultCPath[] = "kza.cpath.default";

// Positions among `package.searchers` once both searchers are in place.
constexpr int kLeadingSearcher = 2;
constexpr int kRestSearcher = 3;

// The string in a field of the table at `index`; empty when it is not one.
std::string StringField(lua_State* L, int index, const char* name)
{
    lua_getfield(L, index, name);
    size_t length = 0;
    const char* const text = lua_tolstring(L, -1, &length);
    std::string result =
        text == nullptr ? std::string() : std::string(text, length);
    lua_pop(L, 1);
    return result;
}

void SetStringField(lua_State* L,
                    int index,
                    const char* name,
                    const std::string& value)
{
    index = lua_absindex(L, index);
    lua_pushlstring(L, value.data(), value.size());
    lua_setfield(L, index, name);
}

// One path list behind another.
std::string Joined(const std::string& list, const std::string& rest)
{
    return list.empty() || rest.empty() ? list + rest : list + ";" + rest;
}

// The entries of a path list that start at the root of the file system.
std::string AbsoluteEntries(const std::string& list)
{
    std::string result;
    for (const std::string_view entry : SplitList<std::string_view>(list, ";"))
        if (entry.front() == '/')
            result = Joined(result, std::string(entry));
    return result;
}

// Lua's compiled-in list: what the field held before it was first changed.
std::string CompiledIn(lua_State* L, const char* field, const char* savedAs)
{
    lua_getfield(L, LUA_REGISTRYINDEX, savedAs);
    const bool saved = lua_isstring(L, -1) != 0;
    lua_pop(L, 1);
    if (!saved)
        SetStringField(L, LUA_REGISTRYINDEX, savedAs,
                       StringField(L, -1, field));
    return StringField(L, LUA_REGISTRYINDEX, savedAs);
}

// Searches a list of templates for the module in argument 1, as Lua's own
// searcher of Lua files does.
int SearchTemplates(lua_State* L, const std::string& list)
{
    const char* const name = luaL_checkstring(L, 1);
    lua_pushvalue(L, lua_upvalueindex(1)); // package.searchpath
    lua_pushvalue(L, 1);
    lua_pushlstring(L, list.data(), list.size());
    lua_call(L, 2, 2);
    if (lua_isnil(L, -2))
        return 1; // the list of files tried
    lua_pop(L, 1);
    const char* const file = lua_tostring(L, -1);
    if (luaL_loadfilex(L, file, nullptr) != LUA_OK)
        return luaL_error(L, "error loading module '%s' from file '%s':\n\t%s",
                          name, file, lua_tostring(L, -1));
    lua_pushvalue(L, -2);
    return 2;
}

int LeadingSearcherCB(lua_State* L)
{
    return SearchTemplates(L, StringField(L, LUA_REGISTRYINDEX, kLeadingPath));
}

// What the leading searcher has tried is not tried, nor listed, again; a
// script that changed `package.path` gets what it asked for.
int RestSearcherCB(lua_State* L)
{
    lua_getfield(L, lua_upvalueindex(2), "path");
    if (lua_isstring(L, -1) == 0)
        return luaL_error(L, "'package.path' must be a string");
    lua_pop(L, 1);
    std::string list = StringField(L, lua_upvalueindex(2), "path");
    const std::string leading =
        StringField(L, LUA_REGISTRYINDEX, kLeadingPath) + ";";
    if (leading.size() > 1 && list.compare(0, leading.size(), leading) == 0)
        list.erase(0, leading.size());
    return SearchTemplates(L, list);
}

// Makes room at a position of `package.searchers`, on top of the stack, and
// puts the function below it there; pops the function.
void InsertSearcher(lua_State* L, int position)
{
    for (int i = static_cast<int>(lua_rawlen(L, -1)); i >= position; --i)
    {
        lua_rawgeti(L, -1, i);
        lua_rawseti(L, -2, i + 1);
    }
    lua_pushvalue(L, -2);
    lua_rawseti(L, -2, position);
    lua_remove(L, -2);
}

void PushSearcher(lua_State* L, lua_CFunction searcher, int package)
{
    lua_getfield(L, package, "searchpath");
    lua_pushvalue(L, package);
    lua_pushcclosure(L, searcher, 2);
}

// Leaves the package table and its searchers on the stack.
void PushPackageAndSearchers(lua_State* L)
{
    lua_getglobal(L, "package");
    if (!lua_istable(L, -1))
        luaL_error(L, "the package library is not open");
    lua_getfield(L, -1, "searchers");
    if (!lua_istable(L, -1))
        luaL_error(L, "'package.searchers' must be a table");
}

bool HasOwnSearchers(lua_State* L)
{
    lua_getfield(L, LUA_REGISTRYINDEX, kLeadingPath);
    const bool has = lua_isstring(L, -1) != 0;
    lua_pop(L, 1);
    return has;
}

void InstallSearchers(lua_State* L)
{
    PushPackageAndSearchers(L);
    const int package = lua_gettop(L) - 1;
    PushSearcher(L, Guarded<RestSearcherCB>, package);
    lua_rawseti(L, -2, kLeadingSearcher); // in place of Lua's own
    PushSearcher(L, Guarded<LeadingSearcherCB>, package);
    lua_insert(L, -2);
    InsertSearcher(L, kLeadingSearcher);
    lua_pop(L, 2);
}

} // namespace

void SetSearchPaths(lua_State* L,
                    const std::string& bin,
                    const std::string& path,
                    const std::string& cpath)
{
    if (!HasOwnSearchers(L))
        InstallSearchers(L);
    SetStringField(L, LUA_REGISTRYINDEX, kLeadingPath, path);

    lua_getglobal(L, "package");
    std::string lua;
    std::string native;
    if (!bin.empty())
    {
        lua = bin + "/lua/?.lua;" + bin + "/lua/?/init.lua";
        native = bin + "/lib/lua/?.so";
    }
    const std::string hostsLua =
        AbsoluteEntries(CompiledIn(L, "path", kDefaultPath));
    const std::string hostsNative =
        AbsoluteEntries(CompiledIn(L, "cpath", kDefaultCPath));
    SetStringField(L, -1, "path", Joined(Joined(path, lua), hostsLua));
    SetStringField(L, -1, "cpath", Joined(Joined(cpath, native), hostsNative));
    lua_pop(L, 1);
}

void InsertArchiveSearcher(lua_State* L)
{
    PushPackageAndSearchers(L);
    lua_remove(L, -2);
    InsertSearcher(L, HasOwnSearchers(L) ? kRestSearcher : kLeadingSearcher);
    lua_pop(L, 1);
}

} // namespace KzaCore
