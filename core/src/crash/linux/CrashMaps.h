// SPDX-License-Identifier: Apache-2.0
//
// The memory map of the crashed process.
//
// Threads: the helper has one. Async-signal-safe. The object is large: keep it
// in static memory.

#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

namespace KzaCore
{

struct CCrashMapping
{
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t offset; // in the mapped file
    std::uint32_t name;   // see CCrashMaps::Name()
    bool readable;
    bool writable;
    bool excluded; // not to be dumped
};

class CCrashMaps
{
public:
    /// Reads the map.
    ///
    /// \param withFlags  Also read which mappings the process has excluded from
    ///                   dumps; takes longer.
    ///
    /// \return false when the map cannot be read; errno says why.
    bool Load(pid_t process, bool withFlags);

    /// Parses one line of the system's text, without its line break.
    void AddLine(const char* line);

    [[nodiscard]] const CCrashMapping* begin() const { return m_mappings; }
    [[nodiscard]] const CCrashMapping* end() const
    {
        return m_mappings + m_count;
    }

    /// The mapping's name: a path, a name in brackets, or empty.
    [[nodiscard]] const char* Name(const CCrashMapping& mapping) const;

    /// The mapping that holds the address, null when there is none.
    [[nodiscard]] const CCrashMapping* Find(std::uint64_t address) const;

    /// The stack that a stack pointer belongs to. After an overflow the pointer
    /// is below its stack; the stack is then the next mapping above.
    [[nodiscard]] const CCrashMapping* FindStack(std::uint64_t pointer) const;

private:
    static constexpr std::size_t kMaxMappings = 16384;
    static constexpr std::size_t kMaxNames = 512 * 1024;

    void AddMapping(const char* line);
    void AddFlags(const char* flags);
    std::uint32_t KeepName(const char* name);

    CCrashMapping m_mappings[kMaxMappings];
    std::size_t m_count = 0;
    // The names one after the other, each with its zero; the empty name is at
    // 0.
    char m_names[kMaxNames + 1];
    std::size_t m_namesLength = 0;
    std::uint32_t m_lastName = 0;
};

} // namespace KzaCore
