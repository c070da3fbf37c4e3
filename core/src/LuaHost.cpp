// SPDX-License-Identifier: Apache-2.0

#include "LuaHost.h"

#include "LuaGuard.h"

#include <libdeflate.h>
#include <lua.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{
namespace
{

using CDirectory = std::unique_ptr<DIR, int (*)(DIR*)>;
using CCompressor =
    std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)>;
using CDecompressor = std::unique_ptr<libdeflate_decompressor,
                                      void (*)(libdeflate_decompressor*)>;

// Smallest output: an archive is made once and read often.
constexpr int kDeflateLevel = 12;

// No stream of this format grows more than this.
constexpr lua_Number kMostGrowth = 1032;

// nil and "path: the system's text", as Lua's io library answers.
int PushSystemError(lua_State* L, const char* path)
{
    const int error = errno;
    lua_pushnil(L);
    lua_pushfstring(L, "%s: %s", path, std::strerror(error));
    return 2;
}

int PushFailure(lua_State* L, const char* message)
{
    lua_pushnil(L);
    lua_pushstring(L, message);
    return 2;
}

// A path as the system takes it: a NUL would cut it short unseen.
const char* CheckPath(lua_State* L, int index)
{
    std::size_t length = 0;
    const char* path = luaL_checklstring(L, index, &length);
    luaL_argcheck(L, std::strlen(path) == length, index, "path holds a NUL");
    return path;
}

const char* TypeName(mode_t mode)
{
    if (S_ISREG(mode))
        return "file";
    if (S_ISDIR(mode))
        return "directory";
    if (S_ISLNK(mode))
        return "link";
    return "other";
}

// list(path): the sorted names in a directory, without "." and "..".
int List(lua_State* L)
{
    const char* path = CheckPath(L, 1);
    const CDirectory directory(opendir(path), closedir);
    if (!directory)
        return PushSystemError(L, path);

    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(directory.get()))
    {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
        errno = 0;
    }
    if (errno != 0)
        return PushSystemError(L, path);

    std::sort(names.begin(), names.end());
    lua_createtable(L, static_cast<int>(names.size()), 0);
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        lua_pushlstring(L, names[i].data(), names[i].size());
        lua_rawseti(L, -2, static_cast<int>(i) + 1);
    }
    return 1;
}

// stat(path [, nofollow]): what is there, as a table.
int Stat(lua_State* L)
{
    const char* path = CheckPath(L, 1);
    const bool nofollow = lua_toboolean(L, 2) != 0;
    struct stat info = {};
    if ((nofollow ? lstat(path, &info) : stat(path, &info)) != 0)
        return PushSystemError(L, path);

    lua_createtable(L, 0, 3);
    lua_pushstring(L, TypeName(info.st_mode));
    lua_setfield(L, -2, "type");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_size));
    lua_setfield(L, -2, "size");
    lua_pushnumber(L, info.st_mode & 07777U);
    lua_setfield(L, -2, "mode");
    return 1;
}

// crc32(bytes): the checksum that zip archives use.
int Crc32(lua_State* L)
{
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 1, &size);
    lua_pushnumber(L, libdeflate_crc32(0, bytes, size));
    return 1;
}

// deflate(bytes): the raw deflate stream of the bytes.
int Deflate(lua_State* L)
{
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 1, &size);
    const CCompressor compressor(libdeflate_alloc_compressor(kDeflateLevel),
                                 libdeflate_free_compressor);
    if (!compressor)
        throw std::bad_alloc();

    std::string out(libdeflate_deflate_compress_bound(compressor.get(), size),
                    '\0');
    const std::size_t used = libdeflate_deflate_compress(
        compressor.get(), bytes, size, out.data(), out.size());
    lua_pushlstring(L, out.data(), used);
    return 1;
}

// inflate(bytes, size): what a raw deflate stream of exactly `size` bytes
// holds, or nil and a message.
int Inflate(lua_State* L)
{
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 1, &size);
    const lua_Number wanted = luaL_checknumber(L, 2);
    const lua_Number most = static_cast<lua_Number>(size) * kMostGrowth;
    if (!(wanted >= 0 && wanted <= most))
        return PushFailure(L, "impossible size of compressed data");

    const CDecompressor decompressor(libdeflate_alloc_decompressor(),
                                     libdeflate_free_decompressor);
    if (!decompressor)
        throw std::bad_alloc();

    std::string out(static_cast<std::size_t>(wanted), '\0');
    const libdeflate_result result = libdeflate_deflate_decompress(
        decompressor.get(), bytes, size, out.data(), out.size(), nullptr);
    if (result != LIBDEFLATE_SUCCESS)
        return PushFailure(L, "damaged compressed data");
    lua_pushlstring(L, out.data(), out.size());
    return 1;
}

// isatty(descriptor): whether a descriptor is a terminal.
int IsATty(lua_State* L)
{
    lua_pushboolean(L, isatty(luaL_checkint(L, 1)));
    return 1;
}

const luaL_Reg kFunctions[] = {
    {"list", Guarded<List>},
    {"stat", Guarded<Stat>},
    {"crc32", Guarded<Crc32>},
    {"deflate", Guarded<Deflate>},
    {"inflate", Guarded<Inflate>},
    {"isatty", Guarded<IsATty>},
    {nullptr, nullptr},
};

int OpenHost(lua_State* L)
{
    luaL_newlib(L, kFunctions);
    return 1;
}

} // namespace

void PreloadLuaHost(lua_State* L)
{
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_PRELOAD");
    lua_pushcfunction(L, OpenHost);
    lua_setfield(L, -2, "kza.host");
    lua_pop(L, 1);
}

} // namespace KzaCore
