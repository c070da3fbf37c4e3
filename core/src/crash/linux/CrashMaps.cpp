// SPDX-License-Identifier: Apache-2.0
//
// Reading /proc/<pid>/maps and smaps.

#include "crash/linux/CrashMaps.h"

#include "crash/CrashText.h"

#include <climits>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// How far below its stack an overflowed stack pointer is looked for. A larger
// frame skips the guard pages, and the overflow is not noticed as one.
constexpr std::uint64_t kGuardReach = 1024 * 1024;

constexpr char kFlagsLine[] = "VmFlags:";
constexpr char kDeleted[] = " (deleted)";

bool IsHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

// Takes a hexadecimal number off the text.
std::uint64_t TakeHex(const char*& text)
{
    std::uint64_t number = 0;
    for (; IsHexDigit(*text); text++)
        number = number << 4U |
                 static_cast<unsigned>(*text <= '9' ? *text - '0'
                                                    : *text - 'a' + 10);
    return number;
}

void SkipWord(const char*& text)
{
    while (*text != '\0' && *text != ' ')
        text++;
    while (*text == ' ')
        text++;
}

} // namespace

bool CCrashMaps::Load(pid_t process, bool withFlags)
{
    char path[64];
    CCrashText text(path, sizeof(path));
    text.Add("/proc/").AddNumber(process).Add(withFlags ? "/smaps" : "/maps");
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    static char line[PATH_MAX + 256];
    static char buffer[32 * 1024];
    std::size_t length = 0;
    ssize_t count = 0;
    while ((count = read(file, buffer, sizeof(buffer))) > 0)
        for (ssize_t i = 0; i < count; i++)
            if (buffer[i] == '\n')
            {
                line[length] = '\0';
                AddLine(line);
                length = 0;
            }
            else if (length + 1 < sizeof(line))
                line[length++] = buffer[i];
    close(file);
    return count == 0;
}

void CCrashMaps::AddLine(const char* line)
{
    // A mapping begins with its address; the lines with its further properties
    // begin with a capital letter.
    if (IsHexDigit(line[0]))
        AddMapping(line);
    else if (std::strncmp(line, kFlagsLine, sizeof(kFlagsLine) - 1) == 0)
        AddFlags(line + sizeof(kFlagsLine) - 1);
}

// Parses "7f12a000-7f12c000 r-xp 00001000 08:01 1234    /lib/libc.so.6".
void CCrashMaps::AddMapping(const char* line)
{
    if (m_count == kMaxMappings)
        return;
    CCrashMapping& mapping = m_mappings[m_count++];
    mapping.start = TakeHex(line);
    line++; // the dash
    mapping.end = TakeHex(line);
    SkipWord(line);
    mapping.readable = line[0] == 'r';
    mapping.writable = mapping.readable && line[1] == 'w';
    SkipWord(line);
    mapping.offset = TakeHex(line);
    SkipWord(line);
    SkipWord(line); // the device
    SkipWord(line); // the file's number
    mapping.name = KeepName(line);
    // The kernel's own pages cannot be read, or hold nothing of the process.
    mapping.excluded = std::strncmp(line, "[vvar", 5) == 0 ||
                       std::strcmp(line, "[vsyscall]") == 0;
}

void CCrashMaps::AddFlags(const char* flags)
{
    if (m_count > 0 && std::strstr(flags, " dd") != nullptr)
        m_mappings[m_count - 1].excluded = true;
}

std::uint32_t CCrashMaps::KeepName(const char* name)
{
    std::size_t length = std::strlen(name);
    const std::size_t mark = sizeof(kDeleted) - 1;
    if (length > mark && std::strcmp(name + length - mark, kDeleted) == 0)
        length -= mark;
    if (length == 0)
        return 0;
    const char* last = m_names + m_lastName;
    if (std::strlen(last) == length && std::memcmp(last, name, length) == 0)
        return m_lastName;
    if (m_namesLength + length + 1 > kMaxNames)
        return 0;
    m_lastName = static_cast<std::uint32_t>(m_namesLength + 1);
    std::memcpy(m_names + m_lastName, name, length);
    m_names[m_lastName + length] = '\0';
    m_namesLength += length + 1;
    return m_lastName;
}

const char* CCrashMaps::Name(const CCrashMapping& mapping) const
{
    return m_names + mapping.name;
}

const CCrashMapping* CCrashMaps::Find(std::uint64_t address) const
{
    for (const CCrashMapping& mapping : *this)
        if (mapping.start <= address && address < mapping.end)
            return &mapping;
    return nullptr;
}

const CCrashMapping* CCrashMaps::FindStack(std::uint64_t pointer) const
{
    for (const CCrashMapping& mapping : *this)
        if (pointer < mapping.end && mapping.writable)
            return mapping.start < pointer + kGuardReach ? &mapping : nullptr;
    return nullptr;
}

} // namespace KzaCore
