// SPDX-License-Identifier: Apache-2.0
//
// Counts how often lines and functions of some files run.
//
// Threads: the one that owns the state.

#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

struct lua_Debug;
struct lua_State;

namespace KzaCore
{

class CLineCoverage
{
public:
    /// The events that Note() is to be told of, as lua_sethook() has them.
    static const int kEvents;

    /// How often each line ran, and each function by the line where its
    /// definition begins. The index is the line.
    struct CFile
    {
        std::vector<std::uint64_t> lines;
        std::vector<std::uint64_t> functions;
    };

    /// \param directory  Files in it and below count; absolute, without links.
    explicit CLineCoverage(std::string directory);

    /// Counts an event.
    void Note(lua_State* L, lua_Debug* event);

    /// The files that ran, by their paths without links.
    [[nodiscard]] const std::unordered_map<std::string, CFile>& Files() const
    {
        return m_files;
    }

private:
    /// What is known of a chunk's source.
    struct CSource
    {
        std::string name;
        CFile* file = nullptr; // null when it does not count
    };

    CFile* FileOf(lua_State* L, lua_Debug* event);
    CFile* FileNamed(const std::string& source);

    const std::string m_directory;
    std::unordered_map<std::string, CFile> m_files;

    // By the address of the name, which is cheap to look up. Another source
    // may come to have the address of one that was collected.
    std::unordered_map<const char*, CSource> m_sources;

    // The call that runs now, and its file.
    const void* m_call = nullptr;
    CFile* m_file = nullptr;
};

} // namespace KzaCore
