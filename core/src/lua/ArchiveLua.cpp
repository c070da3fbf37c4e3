// SPDX-License-Identifier: Apache-2.0

#include "lua/ArchiveLua.h"

#include "archive/ArchiveSet.h"
#include "base/SplitList.h"
#include "lua/ArchiveLoader.h"
#include "lua/DataFile.h"
#include "lua/DomObject.h"
#include "lua/LuaPush.h"
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

// False for a name that could lead out of the directory or archive that it is
// looked for in.
bool IsInside(const std::string& name)
{
    const auto parts = SplitList<std::string_view>(name, "/");
    return (name.empty() || name.front() != '/') &&
           std::find(parts.begin(), parts.end(), "..") == parts.end();
}

// \param tried  The places where the name was looked for before, as a list of
//               lines.
int ReadFromArchives(lua_State* L,
                     const std::string& name,
                     const std::string& tried)
{
    CArchiveSet* const archives = ArchivesOf(L);
    if (archives == nullptr)
        return PushFailure(L,
                           "'" + name + "' not found:" + tried +
                               "\n\tno archives: the loader is not installed");
    std::string bytes;
    std::string place;
    std::string error;
    switch (archives->Read({name}, bytes, place, error))
    {
    case CArchiveSet::EResult::Found:
        PushText(L, bytes);
        return 1;
    case CArchiveSet::EResult::Broken:
        return PushFailure(L, place + ": " + error);
    case CArchiveSet::EResult::Missing:
        break;
    }
    return PushFailure(L, "'" + name + "' not found:" + tried +
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
        return PushFailure(L, "'" + name + "' not found: " + kOutside);

    std::string bytes;
    std::string place;
    std::string tried;
    switch (ReadDataFile(LeadingPath(L), name, bytes, place, tried))
    {
    case EDataFile::Found:
        PushText(L, bytes);
        return 1;
    case EDataFile::Unreadable:
        return PushFailure(L, place + ": " + tried);
    case EDataFile::Missing:
        break;
    }
    return ReadFromArchives(L, name, tried);
}

} // namespace KzaCore
