// SPDX-License-Identifier: Apache-2.0
//
// Counters for the lines and functions of Lua files.
//
// Threads: the one that owns the state.

#pragma once

#include <lua.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace KzaCore
{

class CLineCoverage
{
public:
    /// Hits of each line, and calls of each function by the line where its
    /// definition begins. The index is the line.
    struct CFile
    {
        std::vector<std::uint64_t> lines;
        std::vector<std::uint64_t> functions;
    };

    /// Begins to count.
    ///
    /// \param directory  The directory of the files to count, which may lie
    ///                   below it, too; absolute, without symbolic links.
    void Begin(const std::string& directory);

    /// The mask for lua_sethook() of the events that Note() needs; 0 before
    /// Begin().
    [[nodiscard]] int Events() const;

    /// Counts an event.
    void Note(lua_State* L, lua_Debug* event)
    {
        // The most frequent event is the quick one: a further line of the same
        // call.
        const auto line = static_cast<std::size_t>(event->currentline);
        if (event->event == LUA_HOOKLINE && event->i_ci == m_now.call &&
            line < m_now.size)
            ++m_now.counts[line];
        else
            NoteOther(L, event);
    }

    /// The files of which code ran, by their paths without symbolic links.
    [[nodiscard]] const std::unordered_map<std::string, CFile>& Files() const
    {
        return m_files;
    }

private:
    /// The source of a chunk, with its file.
    struct CSource
    {
        const char* address = nullptr;
        std::string name;
        CFile* file = nullptr; // null outside of the directory
    };

    /// A call of a function, its file, and the counters of that file's lines.
    struct CCall
    {
        const void* call = nullptr;
        CFile* file = nullptr;
        std::uint64_t* counts = nullptr;
        std::size_t size = 0;
    };

    void NoteOther(lua_State* L, lua_Debug* event);
    void Enter(lua_State* L, lua_Debug* event);
    void Leave(const void* call);
    bool ReturnTo(const void* call);
    void CountLine(int line);
    CFile* FileOf(const char* source);
    CFile* FileNamed(const std::string& source);

    std::string m_directory;
    std::unordered_map<std::string, CFile> m_files;

    // A cache, indexed by the address of Lua's string. After a collection,
    // another source may have the same address, so the name is compared, too.
    std::array<CSource, 64> m_sources;

    CCall m_now;                  // the running call
    std::vector<CCall> m_callers; // its callers, as far as known
};

} // namespace KzaCore
