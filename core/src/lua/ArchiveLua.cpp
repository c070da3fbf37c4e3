// SPDX-License-Identifier: Apache-2.0

#include "lua/ArchiveLua.h"

#include "archive/ArchiveSet.h"
#include "lua/ArchiveLoader.h"
#include "lua/DomObject.h"

#include <lua.hpp>

#include <string>

namespace KzaCore
{

namespace
{

int PushReason(lua_State* L, const std::string& reason)
{
    lua_pushnil(L);
    lua_pushlstring(L, reason.data(), reason.size());
    return 2;
}

} // namespace

int LuaReadArchive(lua_State* L)
{
    DomOfMethod(L);
    size_t length = 0;
    const char* const text = luaL_checklstring(L, 2, &length);
    const std::string name(text, length);

    CArchiveSet* const archives = ArchivesOf(L);
    if (archives == nullptr)
        return PushReason(L, "no archives: the loader is not installed");
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
    return PushReason(L, "'" + name +
                             "' not found:" + archives->DescribeMiss({name}));
}

} // namespace KzaCore
