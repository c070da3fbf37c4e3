// SPDX-License-Identifier: Apache-2.0
//
// Asking Lua for the source of a function costs more than all the rest. It is
// asked once a call: from then on lines of the same call are of the same file.
// A call is known by the address of Lua's record of it. That may be used again
// for another one, but not before the end of the first one or the begin of the
// second one is told.

#include "lua/LineCoverage.h"

#include <lua.hpp>

#include <climits>
#include <cstdlib>
#include <utility>

namespace KzaCore
{

namespace
{

void Count(std::vector<std::uint64_t>& counts, int line)
{
    const auto index = static_cast<std::size_t>(line);
    if (index >= counts.size())
        counts.resize(index + 1);
    ++counts[index];
}

} // namespace

const int CLineCoverage::kEvents = LUA_MASKLINE | LUA_MASKCALL | LUA_MASKRET;

CLineCoverage::CLineCoverage(std::string directory)
    : m_directory(std::move(directory) + "/")
{
}

void CLineCoverage::Note(lua_State* L, lua_Debug* event)
{
    if (event->event == LUA_HOOKRET)
    {
        m_call = nullptr;
        return;
    }
    if (event->event != LUA_HOOKLINE || event->i_ci != m_call)
    {
        m_call = event->i_ci;
        m_file = FileOf(L, event);
    }
    if (m_file == nullptr)
        return;
    if (event->event == LUA_HOOKLINE)
        Count(m_file->lines, event->currentline);
    else
        Count(m_file->functions, event->linedefined);
}

// The file of the function that runs, null when it does not count. Sets the
// place of its definition in the event.
CLineCoverage::CFile* CLineCoverage::FileOf(lua_State* L, lua_Debug* event)
{
    lua_getinfo(L, "S", event);
    if (*event->source != '@')
        return nullptr; // of C, or text
    CSource& known = m_sources[event->source];
    if (known.name != event->source)
        known = {event->source, FileNamed(event->source)};
    return known.file;
}

CLineCoverage::CFile* CLineCoverage::FileNamed(const std::string& source)
{
    char path[PATH_MAX];
    if (realpath(source.c_str() + 1, path) == nullptr)
        return nullptr;
    std::string file = path;
    if (file.compare(0, m_directory.size(), m_directory) != 0)
        return nullptr;
    return &m_files[std::move(file)];
}

} // namespace KzaCore
