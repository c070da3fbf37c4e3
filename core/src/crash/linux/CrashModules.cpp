// SPDX-License-Identifier: Apache-2.0
//
// Modules are described from their ELF headers in memory, because their files
// may have been replaced since they were loaded.

#include "crash/linux/CrashModules.h"

#include "crash/linux/CrashMemory.h"

#include <algorithm>
#include <cstring>

#include <elf.h>

namespace KzaCore
{

namespace
{

constexpr std::size_t kMaxHeaders = 32;
constexpr std::size_t kMaxNotes = 2048;

constexpr std::size_t RoundUp(std::size_t size)
{
    return (size + 3) & ~static_cast<std::size_t>(3);
}

// Looks for the linker's build identifier in a segment of notes.
bool TakeBuildId(const char* notes, std::size_t size, CCrashModule& module)
{
    std::size_t at = 0;
    while (at + sizeof(Elf64_Nhdr) <= size)
    {
        Elf64_Nhdr note;
        std::memcpy(&note, notes + at, sizeof(note));
        const std::size_t name = at + sizeof(note);
        const std::size_t content = name + RoundUp(note.n_namesz);
        at = content + RoundUp(note.n_descsz);
        if (at > size)
            return false;
        if (note.n_type != NT_GNU_BUILD_ID || note.n_namesz != 4 ||
            std::memcmp(notes + name, "GNU", 4) != 0)
            continue;
        module.buildIdSize = std::min<std::size_t>(note.n_descsz, kMaxBuildId);
        std::memcpy(module.buildId, notes + content, module.buildIdSize);
        return true;
    }
    return false;
}

void FindBuildId(const Elf64_Phdr* headers,
                 std::size_t count,
                 CCrashModule& module)
{
    static char notes[kMaxNotes];
    std::uint64_t bias = module.base;
    for (std::size_t i = 0; i < count; i++)
        if (headers[i].p_type == PT_LOAD && headers[i].p_offset == 0)
            bias = module.base - headers[i].p_vaddr;
    for (std::size_t i = 0; i < count; i++)
    {
        if (headers[i].p_type != PT_NOTE)
            continue;
        const std::size_t size =
            std::min<std::size_t>(headers[i].p_filesz, kMaxNotes);
        const std::size_t read =
            ReadCrashMemory(bias + headers[i].p_vaddr, notes, size);
        if (TakeBuildId(notes, read, module))
            return;
    }
}

// The mappings of a module follow one another, with nameless ones between them.
std::uint64_t EndOfModule(const CCrashMaps& maps, const CCrashMapping& first)
{
    std::uint64_t end = first.end;
    for (const CCrashMapping* next = &first + 1; next != maps.end(); next++)
    {
        if (next->name == 0)
            continue;
        if (next->name != first.name || next->offset == 0)
            break;
        end = next->end;
    }
    return end;
}

} // namespace

bool DescribeModule(const CCrashMaps& maps,
                    const CCrashMapping& mapping,
                    CCrashModule& module)
{
    const char* path = maps.Name(mapping);
    const bool isVdso = std::strcmp(path, "[vdso]") == 0;
    if (mapping.offset != 0 || !mapping.readable || (path[0] != '/' && !isVdso))
        return false;
    Elf64_Ehdr header = {};
    if (ReadCrashMemory(mapping.start, &header, sizeof(header)) !=
            sizeof(header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        return false;
    module = {};
    module.base = mapping.start;
    module.end = EndOfModule(maps, mapping);
    module.path = isVdso ? "linux-gate.so" : path;

    static Elf64_Phdr headers[kMaxHeaders];
    const std::size_t size =
        std::min<std::size_t>(header.e_phnum, kMaxHeaders) * sizeof(*headers);
    const std::size_t read =
        ReadCrashMemory(mapping.start + header.e_phoff, headers, size);
    FindBuildId(headers, read / sizeof(*headers), module);
    return true;
}

void ParseVersion(const char* text, std::uint16_t (&numbers)[kVersionNumbers])
{
    for (std::uint16_t& number : numbers)
    {
        unsigned value = 0;
        for (; *text >= '0' && *text <= '9'; text++)
            value = value * 10 + static_cast<unsigned>(*text - '0');
        number = static_cast<std::uint16_t>(value);
        if (*text == '.')
            text++;
    }
}

const char* VersionInName(const char* path)
{
    static constexpr char kMark[] = ".so.";
    const char* found = std::strstr(path, kMark);
    return found == nullptr ? "" : found + sizeof(kMark) - 1;
}

} // namespace KzaCore
