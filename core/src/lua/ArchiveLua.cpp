// SPDX-License-Identifier: Apache-2.0

#include "lua/ArchiveLua.h"

#include "archive/ArchiveSet.h"
#include "base/SplitList.h"
#include "lua/ArchiveLoader.h"
#include "lua/DataFile.h"
#include "lua/DomObject.h"
#include "lua/LuaSearchers.h"

#include <lua.hpp>

#include <algorithm>
#include <string>
#include <string_view>

namespace KzaCore
{

namespace
{

constexpr char kOutside[] = "a name is relative and has no '..'";

int PushReason(lua_State* L, const std::string& reason)
{
    lua_pushnil(L);
    lua_pushlstring(L, reason.data(), reason.size());
    return 2;
}

// False for a name that leads out of the places where it is looked for.
bool IsInside(const std::string& name)
{
    const auto parts = SplitList<std::string_view>(name, "/");
    return (name.empty() || name.front() != '/') &&
           std::find(parts.begin(), parts.end(), "..") == parts.end();
}

// \param tried  Where the name was looked for before, as a list of lines.
int ReadFromArchives(lua_State* L,
                     const std::string& name,
                     const std::string& tried)
{
    CArchiveSet* const archives = ArchivesOf(L);
    if (archives == nullptr)
        return PushReason(L,
                          "'" + name + "' not found:" + tried +
                              "\n\tno archives: the loader is not installed");
    std::string bytes;
    std::string place;
    std::string error;
    switch (archives->Read({name}, bytes, place, error))
    {
    case CArchiveSet::EResult::Found:
        lua_pushlstring(L, bytes.data(), bytes.size());
        return 1;
    case CArchiveSet::EResult::Broken:
        return PushReason(L, place + ": " + error);
    case CArchiveSet::EResult::Missing:
        break;
    }
    return PushReason(L, "'" + name + "' not found:" + tried +
                             archives->DescribeMiss({name}));
}

} // namespace

int LuaReadArchive(lua_State* L)
{
    DomOfMethod(L);
    size_t length = 0;
    const char* const text = luaL_checklstring(L, 2, &length);
    const std::string name(text, length);
    if (!IsInside(name))
        return PushReason(L, "'" + name + "' not found: " + kOutside);

    std::string bytes;
    std::string place;
    std::string tried;
    switch (ReadDataFile(LeadingPath(L), name, bytes, place, tried))
    {
    case EDataFile::Found:
        lua_pushlstring(L, bytes.data(), bytes.size());
        return 1;
    case EDataFile::Unreadable:
        return PushReason(L, place + ": " + tried);
    case EDataFile::Missing:
        break;
    }
    return ReadFromArchives(L, name, tried);
}

} // namespace KzaCore
