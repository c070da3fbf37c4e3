// SPDX-License-Identifier: Apache-2.0
//
// The query for the source of a function costs more than everything else here.
// It is made once a call: all lines of a call are of the same file. A call is
// identified by the address of Lua's CallInfo.
//
// Lua uses that address again for a later call, but reports the begin of that
// call. Lua does not report the end of calls that an error ends. It reports the
// end of the function that catches the error, at which all calls above it are
// dropped. All known calls are dropped at an unknown address, as after a switch
// of coroutines.

#include "lua/LineCoverage.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
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

void CLineCoverage::Begin(const std::string& directory)
{
    m_directory = directory + "/";
}

int CLineCoverage::Events() const
{
    return m_directory.empty() ? 0 : LUA_MASKLINE | LUA_MASKCALL | LUA_MASKRET;
}

// When memory is short, the count is lost.
void CLineCoverage::NoteOther(lua_State* L, lua_Debug* event)
{
    try
    {
        if (event->event == LUA_HOOKRET)
            Leave(event->i_ci);
        else if (event->event != LUA_HOOKLINE || !ReturnTo(event->i_ci))
            Enter(L, event);
        if (event->event == LUA_HOOKLINE)
            CountLine(event->currentline);
    }
    catch (const std::bad_alloc&)
    {
        m_now = {};
        m_callers.clear();
    }
}

// Makes the call of the event the running one. At its begin, counts its
// function.
void CLineCoverage::Enter(lua_State* L, lua_Debug* event)
{
    if (event->event == LUA_HOOKCALL)
        m_callers.push_back(m_now);
    else if (event->event == LUA_HOOKLINE)
        m_callers.clear();
    lua_getinfo(L, "S", event);
    m_now = {event->i_ci, FileOf(event->source), nullptr, 0};
    if (m_now.file == nullptr)
        return;
    m_now.counts = m_now.file->lines.data();
    m_now.size = m_now.file->lines.size();
    if (event->event != LUA_HOOKLINE)
        Count(m_now.file->functions, event->linedefined);
}

// Makes the caller of a call the running one.
void CLineCoverage::Leave(const void* call)
{
    if (!ReturnTo(call) || m_callers.empty())
    {
        m_now = {};
        m_callers.clear();
        return;
    }
    m_now = m_callers.back();
    m_callers.pop_back();
}

// Makes a known call the running one and drops the calls above it.
//
// \return false when the call is not known.
bool CLineCoverage::ReturnTo(const void* call)
{
    if (m_now.call == call)
        return true;
    const auto found = std::find_if(m_callers.rbegin(), m_callers.rend(),
                                    [call](const CCall& caller)
                                    { return caller.call == call; });
    if (found == m_callers.rend())
        return false;
    m_now = *found;
    m_callers.erase(std::prev(found.base()), m_callers.end());
    return true;
}

void CLineCoverage::CountLine(int line)
{
    if (m_now.file == nullptr)
        return;
    Count(m_now.file->lines, line);
    m_now.counts = m_now.file->lines.data();
    m_now.size = m_now.file->lines.size();
}

// The file of a source, null when it lies outside of the directory.
CLineCoverage::CFile* CLineCoverage::FileOf(const char* source)
{
    if (*source != '@')
        return nullptr;                // of C, or text
    constexpr unsigned kAlignment = 4; // bits of an address that are the same
    CSource& known =
        m_sources[(reinterpret_cast<std::uintptr_t>(source) >> kAlignment) %
                  m_sources.size()];
    if (known.address != source || std::strcmp(known.name.c_str(), source) != 0)
        known = {source, source, FileNamed(source)};
    return known.file;
}

CLineCoverage::CFile* CLineCoverage::FileNamed(const std::string& source)
{
    char path[PATH_MAX];
    const int error = errno; // the interrupted C function may still read it
    const bool isFile = realpath(source.c_str() + 1, path) != nullptr;
    errno = error;
    if (!isFile)
        return nullptr;
    std::string file = path;
    if (file.compare(0, m_directory.size(), m_directory) != 0)
        return nullptr;
    return &m_files[std::move(file)];
}

} // namespace KzaCore
