// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaSearchers.h"

#include "base/Descriptor.h"
#include "base/Error.h"
#include "base/SplitList.h"
#include "lua/LuaGuard.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <string_view>
#include <vector>

#include <fcntl.h>

namespace KzaCore
{

namespace
{

// Registry names of strings: the leading path list, and Lua's compiled-in paths
// from before the first change.
constexpr char kLeadingPath[] = "kza.path.leading";
constexpr char kDefaultPath[] = "kza.path.default";
constexpr char kDefaultCPath[] = "kza.cpath.default";

// Positions among `package.searchers` when Lua opens the library.
constexpr int kLuaSearcher = 2;
constexpr int kFirstNativeSearcher = 3;

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

// Two path lists as one.
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

// Lua's compiled-in list: the field's value before it was first changed.
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

// The error number of the attempt to open a file for reading; 0 on success.
int ReadError(const std::string& path)
{
    const CDescriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return file.IsOpen() ? 0 : errno;
}

// What follows "no file '…'" for a file that is there and cannot be read.
std::string Reason(int error)
{
    return error == ENOENT || error == ENOTDIR ? ""
                                               : ": " + SystemErrorText(error);
}

std::string FillTemplate(std::string_view entry, const std::string& name)
{
    std::string path;
    for (const char c : entry)
        if (c == '?')
            path += name;
        else
            path += c;
    return path;
}

// Finds a module's file as package.searchpath() does.
//
// \param file   Out: the file, when one can be read.
// \param tried  Out: a line for each file that cannot.
bool FindFile(std::string name,
              const std::string& list,
              std::string& file,
              std::string& tried)
{
    std::replace(name.begin(), name.end(), '.', '/');
    for (const std::string_view entry : SplitList<std::string_view>(list, ";"))
    {
        file = FillTemplate(entry, name);
        const int error = ReadError(file);
        if (error == 0)
            return true;
        tried += "\n\tno file '" + file + "'" + Reason(error);
    }
    return false;
}

// Searches a list of templates for the module in argument 1, as Lua's own
// searcher of Lua files does.
int SearchTemplates(lua_State* L, const std::string& list)
{
    const char* const name = luaL_checkstring(L, 1);
    std::string file;
    std::string tried;
    if (!FindFile(name, list, file, tried))
    {
        lua_pushlstring(L, tried.data(), tried.size());
        return 1;
    }
    if (luaL_loadfilex(L, file.c_str(), nullptr) != LUA_OK)
        return luaL_error(L, "error loading module '%s' from file '%s':\n\t%s",
                          name, file.c_str(), lua_tostring(L, -1));
    lua_pushlstring(L, file.data(), file.size());
    return 2;
}

int LeadingSearcherCB(lua_State* L)
{
    return SearchTemplates(L, LeadingPath(L));
}

// Searches `package.path` without the leading list at its beginning, which the
// leading searcher has tried and listed already. When a script has changed
// `package.path`, all of it is searched.
int RestSearcherCB(lua_State* L)
{
    lua_getfield(L, lua_upvalueindex(1), "path");
    if (lua_isstring(L, -1) == 0)
        return luaL_error(L, "'package.path' must be a string");
    lua_pop(L, 1);
    std::string list = StringField(L, lua_upvalueindex(1), "path");
    const std::string leading = LeadingPath(L) + ";";
    if (leading.size() > 1 && list.compare(0, leading.size(), leading) == 0)
        list.erase(0, leading.size());
    return SearchTemplates(L, list);
}

// Lua's list of the files that were tried, with a reason beside each file that
// exists and cannot be read.
std::string WithReasons(const std::string& tried)
{
    std::string result;
    std::istringstream lines(tried);
    for (std::string line; std::getline(lines, line);)
    {
        constexpr std::string_view kStart = "\tno file '";
        if (line.empty())
            continue;
        result += "\n" + line;
        if (line.compare(0, kStart.size(), kStart) == 0)
            result += Reason(ReadError(
                line.substr(kStart.size(), line.size() - kStart.size() - 1)));
    }
    return result;
}

// One of Lua's own searchers of C modules, in upvalue 1.
int NativeSearcherCB(lua_State* L)
{
    lua_settop(L, 1);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_pushvalue(L, 1);
    lua_call(L, 1, LUA_MULTRET);
    if (lua_gettop(L) != 2 || lua_type(L, 2) != LUA_TSTRING)
        return lua_gettop(L) - 1;
    const std::string tried = WithReasons(lua_tostring(L, 2));
    lua_pushlstring(L, tried.data(), tried.size());
    return 1;
}

// Inserts a function into `package.searchers`, which is on top of the stack, at
// a position. The function is below it on the stack, and is removed from there.
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

// The position of a searcher in `package.searchers`, which is on top of the
// stack; 0 when the searcher is not in it.
int PositionOf(lua_State* L, lua_CFunction searcher)
{
    const int count = static_cast<int>(lua_rawlen(L, -1));
    for (int i = 1; i <= count; ++i)
    {
        lua_rawgeti(L, -1, i);
        const bool isIt = lua_tocfunction(L, -1) == searcher;
        lua_pop(L, 1);
        if (isIt)
            return i;
    }
    return 0;
}

void PushSearcher(lua_State* L, lua_CFunction searcher, int package)
{
    lua_pushvalue(L, package);
    lua_pushcclosure(L, searcher, 1);
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

void WrapNativeSearchers(lua_State* L)
{
    const int count = static_cast<int>(lua_rawlen(L, -1));
    for (int i = kFirstNativeSearcher; i <= count; ++i)
    {
        lua_rawgeti(L, -1, i);
        lua_pushcclosure(L, Guarded<NativeSearcherCB>, 1);
        lua_rawseti(L, -2, i);
    }
}

void InstallSearchers(lua_State* L)
{
    PushPackageAndSearchers(L);
    const int package = lua_gettop(L) - 1;
    if (PositionOf(L, Guarded<RestSearcherCB>) == 0)
    {
        WrapNativeSearchers(L);
        PushSearcher(L, Guarded<RestSearcherCB>, package);
        lua_rawseti(L, -2, kLuaSearcher); // in place of Lua's own
        PushSearcher(L, Guarded<LeadingSearcherCB>, package);
        lua_insert(L, -2);
        InsertSearcher(L, kLuaSearcher);
    }
    lua_pop(L, 2);
}

} // namespace

void SetSearchPaths(lua_State* L,
                    const std::string& bin,
                    const std::string& path,
                    const std::string& cpath)
{
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

std::string LeadingPath(lua_State* L)
{
    return StringField(L, LUA_REGISTRYINDEX, kLeadingPath);
}

void InsertArchiveSearcher(lua_State* L, lua_CFunction searcher)
{
    PushPackageAndSearchers(L);
    if (PositionOf(L, searcher) == 0)
    {
        const int rest = PositionOf(L, Guarded<RestSearcherCB>);
        lua_pushcfunction(L, searcher);
        lua_insert(L, -2);
        InsertSearcher(L, rest == 0 ? kLuaSearcher : rest);
    }
    lua_pop(L, 2);
}

} // namespace KzaCore
