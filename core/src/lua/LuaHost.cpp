// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaHost.h"

#include "archive/Inflate.h"
#include "archive/ZipArchive.h"
#include "base/Bytes.h"
#include "base/CopyFile.h"
#include "base/Error.h"
#include "base/NewFile.h"
#include "base/ReplaceFile.h"
#include "kza_core/Owner.h"
#include "kza_core/Unzip.h"
#include "lua/ErrorReport.h"
#include "lua/LuaChildren.h"
#include "lua/LuaGuard.h"
#include "lua/LuaHostSystem.h"
#include "lua/LuaPackageKeys.h"
#include "lua/LuaPush.h"

#include <libdeflate.h>
#include <lua.hpp>
#include <wx/filename.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{
namespace
{

using CDirectory = std::unique_ptr<DIR, int (*)(DIR*)>;
using CCompressor =
    std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)>;

// Smallest output: an archive is made once and read often.
constexpr int kDeflateLevel = 12;

// Pushes nil and "path: the system's text", as Lua's io library does.
int PushSystemError(lua_State* L, const char* path)
{
    const std::string text = SystemErrorText(errno);
    lua_pushnil(L);
    lua_pushfstring(L, "%s: %s", path, text.c_str());
    return 2;
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
    PushTexts(L, names);
    return 1;
}

// stat(path [, nofollow]): type, size, mode and the like of a file, as a table.
int Stat(lua_State* L)
{
    const char* path = CheckPath(L, 1);
    const bool nofollow = lua_toboolean(L, 2) != 0;
    struct stat info = {};
    if ((nofollow ? lstat(path, &info) : stat(path, &info)) != 0)
        return PushSystemError(L, path);

    lua_createtable(L, 0, 9);
    lua_pushstring(L, TypeName(info.st_mode));
    lua_setfield(L, -2, "type");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_size));
    lua_setfield(L, -2, "size");
    lua_pushnumber(L, info.st_mode & 07777U);
    lua_setfield(L, -2, "mode");
    lua_pushnumber(L, info.st_uid);
    lua_setfield(L, -2, "user");
    lua_pushnumber(L, info.st_gid);
    lua_setfield(L, -2, "group");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_mtim.tv_sec) +
                          static_cast<lua_Number>(info.st_mtim.tv_nsec) / 1e9);
    lua_setfield(L, -2, "modified");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_ctime));
    lua_setfield(L, -2, "changed");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_dev));
    lua_setfield(L, -2, "device");
    lua_pushnumber(L, static_cast<lua_Number>(info.st_ino));
    lua_setfield(L, -2, "inode");
    return 1;
}

// access(path, "read"|"write"): whether this process may do that.
int Access(lua_State* L)
{
    static const char* const kNames[] = {"read", "write", nullptr};
    static constexpr int kModes[] = {R_OK, W_OK};
    const char* const path = CheckPath(L, 1);
    const int mode = kModes[luaL_checkoption(L, 2, nullptr, kNames)];
    if (faccessat(AT_FDCWD, path, mode, AT_EACCESS) != 0)
        return PushSystemError(L, path);
    lua_pushboolean(L, 1);
    return 1;
}

// changeable(path): what of it others can change, a text each.
int Changeable(lua_State* L)
{
    TChangeable changeable;
    JudgePath(CheckPath(L, 1), changeable);
    PushTexts(L, changeable);
    return 1;
}

// crc32(bytes [, before]): the checksum that zip archives use; `before` is the
// checksum of the bytes before these.
int Checksum(lua_State* L)
{
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 1, &size);
    const lua_Unsigned before = luaL_optunsigned(L, 2, 0);
    lua_pushnumber(L, Crc32(before, bytes, size));
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

// write(path, bytes): makes a file with these bytes, or replaces it.
int Write(lua_State* L)
{
    const char* path = CheckPath(L, 1);
    std::size_t size = 0;
    const char* bytes = luaL_checklstring(L, 2, &size);
    if (!ReplaceFile(path, {bytes, size}))
        return PushSystemError(L, path);
    lua_pushboolean(L, 1);
    return 1;
}

// write_new(path, bytes [, private]): makes a file with these bytes, for its
// owner alone or for all to read.
int WriteNew(lua_State* L)
{
    const char* const path = CheckPath(L, 1);
    std::size_t size = 0;
    const char* const bytes = luaL_checklstring(L, 2, &size);
    const mode_t mode = lua_toboolean(L, 3) != 0 ? 0600 : 0644;
    if (!WriteNewFile(path, {bytes, size}, mode))
        return PushSystemError(L, path);
    lua_pushboolean(L, 1);
    return 1;
}

// copy(from, to): copies the bytes of a file into a new one.
int Copy(lua_State* L)
{
    const char* const from = CheckPath(L, 1);
    const char* const to = CheckPath(L, 2);
    if (!CopyFile(from, to))
        return PushSystemError(L, errno == EEXIST ? to : from);
    lua_pushboolean(L, 1);
    return 1;
}

// make_directory(path [, shared]): makes a directory, for its owner alone or
// with the mode that the umask allows.
int MakeDirectory(lua_State* L)
{
    const char* const path = CheckPath(L, 1);
    const bool shared = lua_toboolean(L, 2) != 0;
    if (mkdir(path, shared ? 0777 : S_IRWXU) != 0)
        return PushSystemError(L, path);
    lua_pushboolean(L, 1);
    return 1;
}

void PushEntry(lua_State* L, const CZipEntry& entry)
{
    lua_createtable(L, 0, 5);
    PushText(L, entry.name);
    lua_setfield(L, -2, "name");
    lua_pushnumber(L, static_cast<lua_Number>(entry.size));
    lua_setfield(L, -2, "size");
    lua_pushnumber(L, entry.UnixMode() & 07777U);
    lua_setfield(L, -2, "mode");
    lua_pushnumber(L, entry.crc);
    lua_setfield(L, -2, "crc");
}

// entries(path [, read]): the entries of a zip archive, in its order. With
// `read`, each entry's content is read, and one that cannot be read has a field
// `problem`.
int Entries(lua_State* L)
{
    const char* path = CheckPath(L, 1);
    const bool read = lua_toboolean(L, 2) != 0;
    CZipArchive archive;
    std::string error;
    if (!archive.Open(path, error))
        return PushFailure(L, std::string(path) + ": " + error);

    lua_createtable(L, static_cast<int>(archive.Entries().size()), 0);
    int index = 0;
    std::string bytes;
    for (const CZipEntry& entry : archive.Entries())
    {
        PushEntry(L, entry);
        if (read && !archive.Read(entry, bytes, error))
        {
            PushText(L, error);
            lua_setfield(L, -2, "problem");
        }
        lua_rawseti(L, -2, ++index);
    }
    return 1;
}

// check_package(path, directory [, names_only]): true when Unzip() would unpack
// the archive into that directory, else nil and the text that it would log.
// Changes nothing on disk. With `names_only`, checks as for a removal package.
int CheckPackage(lua_State* L)
{
    const wxFileName archive(TextOfBytes(CheckPath(L, 1)));
    const wxFileName directory =
        wxFileName::DirName(TextOfBytes(CheckPath(L, 2)));
    CUnzipOptions options;
    options.namesOnly = lua_toboolean(L, 3) != 0;
    wxString error;
    if (!CanUnzip(archive, directory, options, error))
        return PushFailure(L, BytesOfText(error));
    lua_pushboolean(L, 1);
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
    {"changeable", Guarded<Changeable>},
    {"crc32", Guarded<Checksum>},
    {"deflate", Guarded<Deflate>},
    {"entries", Guarded<Entries>},
    {"check_package", Guarded<CheckPackage>},
    {"isatty", Guarded<IsATty>},
    {"write", Guarded<Write>},
    {"keys", Guarded<LuaPackageKeys>},
    {"new_key", Guarded<LuaNewKey>},
    {"sign", Guarded<LuaSign>},
    {"write_new", Guarded<WriteNew>},
    {"copy", Guarded<Copy>},
    {"make_directory", Guarded<MakeDirectory>},
    {"access", Guarded<Access>},
    {"error_report", ErrorReportCB},
    {nullptr, nullptr},
};

int OpenHost(lua_State* L)
{
    luaL_newlib(L, kFunctions);
    AddLuaHostSystem(L);
    AddLuaChildren(L);
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
