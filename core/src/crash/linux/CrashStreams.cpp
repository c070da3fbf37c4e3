// SPDX-License-Identifier: Apache-2.0
//
// The streams are written by one function each, in this order:
//
//   1. The other threads are stopped. Afterwards neither the memory map nor a
//      stack changes, and memory may be read.
//   2. The registers at the fault and the map are read; all streams need them.
//   3. The most important streams are written first, so that a disk that fills
//      up loses the least: cause, threads, modules, note. Functions that add
//      memory of the process (stacks, the surroundings of the fault) do so by
//      AddMemory(), which also enters the block in g_memory.
//   4. The memory list is written from g_memory, when that is complete.
//   5. Copies of the system's own texts follow.
//   6. The whole memory of a full dump comes last: it may reach beyond the
//      4 GiB that all other streams can address.
//
// The lifetimes of the static objects:
//
//   g_maps     filled in step 2, unchanged afterwards.
//   g_stopped  filled in step 1; its first m_stoppedCount entries count.
//   g_memory   grows in step 3; its first m_memoryCount entries count.
//   g_threads, g_modules
//              each used by one function, which fills and writes it.
//   g_block    a buffer for each copy into the file. AddMemory(), AddFile() and
//              AddAllMemory() overwrite it, and none of them calls another.

#include "crash/linux/CrashStreams.h"

#include "base/WholeTransfer.h"
#include "crash/CrashText.h"
#include "crash/linux/CrashMaps.h"
#include "crash/linux/CrashMemory.h"
#include "crash/linux/CrashModules.h"
#include "crash/linux/CrashNote.h"
#include "crash/linux/CrashThreads.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// The size of the part of a stack that is dumped, from its innermost frame on.
// After an endless recursion this is enough to show the functions that recurse.
constexpr std::uint64_t kCrashedStackSize = 512 * 1024;
constexpr std::uint64_t kOtherStackSize = 64 * 1024;
// The bytes below the stack pointer where leaf functions keep data.
constexpr std::uint64_t kRedZone = 128;
constexpr std::uint64_t kAroundFault = 2048;
constexpr std::uint64_t kAroundCode = 256;

constexpr std::size_t kMaxModules = 2048;
constexpr std::size_t kMaxMemory = kMaxCrashThreads + 16;

// Static, because the helper may not allocate and its stack is small. Before a
// crash, they take addresses but no memory.
CCrashMaps g_maps;
pid_t g_stopped[kMaxCrashThreads];
Minidump::CThread g_threads[kMaxCrashThreads + 1];
Minidump::CModule g_modules[kMaxModules];
Minidump::CMemoryDescriptor g_memory[kMaxMemory];
char g_block[256 * 1024];

// Adds a list in the format's layout: a count and the entries.
template <typename T>
void AddList(CMinidumpFile& file,
             Minidump::EStream type,
             const T* entries,
             std::size_t count)
{
    const auto number = static_cast<std::uint32_t>(count);
    const Minidump::CLocation list =
        file.Reserve(sizeof(number) + count * sizeof(T));
    file.Fill(list, &number, sizeof(number));
    file.Fill({0, static_cast<std::uint32_t>(list.rva + sizeof(number))},
              entries, count * sizeof(T));
    file.AddStream(type, list);
}

std::uint8_t CountProcessors()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0)
        return 1;
    return static_cast<std::uint8_t>(std::min(CPU_COUNT(&set), UINT8_MAX));
}

} // namespace

CCrashStreams::CCrashStreams(const CCrashPlan& plan,
                             const CCrashCause& cause,
                             CMinidumpFile& file)
    : m_plan(plan), m_cause(cause), m_file(file)
{
}

int CCrashStreams::Write()
{
    m_stoppedCount = StopThreads(m_cause.process, m_cause.thread, g_stopped,
                                 kMaxCrashThreads);
    OpenCrashMemory(m_cause.process);
    TakeRegisters(*m_cause.context, m_crashedRegisters);
    // Without the map the dump still has signal and registers, but no stacks.
    (void)g_maps.Load(m_cause.process, m_plan.full);
    NoteCrashProgress();
    AddSystemInfo();
    AddMiscInfo();
    AddException();
    AddThreads();
    AddModules();
    AddNote();
    NoteCrashProgress();
    if (m_cause.info->si_code > 0)
        AddMemoryAround(reinterpret_cast<std::uintptr_t>(m_cause.info->si_addr),
                        kAroundFault);
    AddMemoryAround(m_crashedRegisters.instruction, kAroundCode);
    AddMemoryList();
    AddFile(Minidump::EStream::LinuxCpuInfo, "/proc/cpuinfo");
    AddProcFile(Minidump::EStream::LinuxProcStatus, "status");
    AddProcFile(Minidump::EStream::LinuxCmdLine, "cmdline");
    AddProcFile(Minidump::EStream::LinuxAuxv, "auxv");
    AddProcFile(Minidump::EStream::LinuxMaps, "maps");
    if (m_plan.full)
        AddAllMemory();
    return m_file.Finish(static_cast<std::uint32_t>(m_cause.time),
                         m_plan.full ? Minidump::kWithFullMemory : 0);
}

void CCrashStreams::AddSystemInfo()
{
    static char buffer[sizeof(utsname)];
    CCrashText text(buffer, sizeof(buffer));
    utsname names = {};
    if (uname(&names) == 0)
        text.Add(names.sysname)
            .Add(" ")
            .Add(names.release)
            .Add(" ")
            .Add(names.version)
            .Add(" ")
            .Add(names.machine);
    Minidump::CSystemInfo system = {};
    system.platform = Minidump::kPlatformLinux;
    system.processorCount = CountProcessors();
    DescribeProcessor(system);
    system.versionTextRva = m_file.AppendString(text.Text());
    m_file.AddStream(Minidump::EStream::SystemInfo,
                     m_file.Append(&system, sizeof(system)));
}

void CCrashStreams::AddMiscInfo()
{
    Minidump::CMiscInfo misc = {};
    misc.size = sizeof(misc);
    misc.flags = Minidump::kMiscHasProcessId;
    misc.processId = static_cast<std::uint32_t>(m_cause.process);
    m_file.AddStream(Minidump::EStream::MiscInfo,
                     m_file.Append(&misc, sizeof(misc)));
}

void CCrashStreams::AddException()
{
    Minidump::CException exception = {};
    exception.threadId = static_cast<std::uint32_t>(m_cause.thread);
    exception.code = static_cast<std::uint32_t>(m_cause.info->si_signo);
    exception.flags = static_cast<std::uint32_t>(m_cause.info->si_code);
    if (m_cause.info->si_code > 0)
        exception.address =
            reinterpret_cast<std::uintptr_t>(m_cause.info->si_addr);
    exception.context =
        m_file.Append(m_crashedRegisters.record, m_crashedRegisters.recordSize);
    m_file.AddStream(Minidump::EStream::Exception,
                     m_file.Append(&exception, sizeof(exception)));
}

void CCrashStreams::AddThreads()
{
    std::size_t count = 0;
    g_threads[count++] = DescribeThread(m_cause.thread, m_crashedRegisters);
    for (std::size_t i = 0; i < m_stoppedCount; i++)
    {
        CCrashRegisters registers;
        if (ReadRegisters(g_stopped[i], registers))
            g_threads[count++] = DescribeThread(g_stopped[i], registers);
        NoteCrashProgress();
    }
    AddList(m_file, Minidump::EStream::ThreadList, g_threads, count);
}

Minidump::CThread CCrashStreams::DescribeThread(
    pid_t id, const CCrashRegisters& registers)
{
    Minidump::CThread thread = {};
    thread.id = static_cast<std::uint32_t>(id);
    thread.context = m_file.Append(registers.record, registers.recordSize);
    const CCrashMapping* stack = g_maps.FindStack(registers.stackPointer);
    if (stack == nullptr)
        return thread;
    const std::uint64_t start = std::max(
        stack->start, (registers.stackPointer - kRedZone) & ~std::uint64_t{7});
    std::uint64_t end = stack->end;
    // Above the main thread's frames are the command line and the environment,
    // which may contain secrets.
    const std::uint64_t words = getauxval(AT_RANDOM);
    if (stack->start <= words && start < words && words < end)
        end = words;
    const std::uint64_t limit =
        id == m_cause.thread ? kCrashedStackSize : kOtherStackSize;
    thread.stack = AddMemory(start, std::min(end - start, limit));
    return thread;
}

void CCrashStreams::AddModules()
{
    std::size_t count = 0;
    for (const CCrashMapping& mapping : g_maps)
    {
        CCrashModule found;
        if (count == kMaxModules || !DescribeModule(g_maps, mapping, found))
            continue;
        Minidump::CModule& module = g_modules[count++];
        module = {};
        module.base = found.base;
        module.size = static_cast<std::uint32_t>(found.end - found.base);
        module.nameRva = m_file.AppendString(found.path);
        module.version = VersionOf(found);
        std::uint32_t record[1 + kMaxBuildId / sizeof(std::uint32_t)] = {
            Minidump::kCvElfBuildId};
        std::memcpy(record + 1, found.buildId, found.buildIdSize);
        if (found.buildIdSize > 0)
            module.cvRecord =
                m_file.Append(record, sizeof(*record) + found.buildIdSize);
    }
    AddList(m_file, Minidump::EStream::ModuleList, g_modules, count);
}

Minidump::CFixedFileInfo CCrashStreams::VersionOf(
    const CCrashModule& module) const
{
    const auto holds = [&module](std::uint64_t address)
    { return module.base <= address && address < module.end; };
    // The library is recognised by the address of a function: its variables may
    // be behind the part that is mapped from the file.
    const bool isOurs = holds(getauxval(AT_ENTRY)) ||
                        holds(reinterpret_cast<std::uintptr_t>(&ParseVersion));
    std::uint16_t numbers[kVersionNumbers];
    ParseVersion(isOurs ? m_plan.version : VersionInName(module.path), numbers);
    Minidump::CFixedFileInfo version = {};
    version.signature = Minidump::kFixedFileInfoSignature;
    version.structVersion = Minidump::kFixedFileInfoVersion;
    version.fileVersionHigh =
        static_cast<std::uint32_t>(numbers[0]) << 16U | numbers[1];
    version.fileVersionLow =
        static_cast<std::uint32_t>(numbers[2]) << 16U | numbers[3];
    version.productVersionHigh = version.fileVersionHigh;
    version.productVersionLow = version.fileVersionLow;
    return version;
}

void CCrashStreams::AddNote()
{
    const std::size_t length = ComposeCrashNote(m_plan, m_cause);
    // The note is in the helper's memory and not in the process's, so it cannot
    // be added by AddMemory().
    const Minidump::CLocation note = m_file.Append(kza_crash_note, length + 1);
    m_file.AddStream(Minidump::EStream::CommentA, note);
    ListMemory({reinterpret_cast<std::uintptr_t>(kza_crash_note), note});
}

void CCrashStreams::ListMemory(const Minidump::CMemoryDescriptor& memory)
{
    if (m_memoryCount < kMaxMemory)
        g_memory[m_memoryCount++] = memory;
}

Minidump::CMemoryDescriptor CCrashStreams::AddMemory(std::uint64_t start,
                                                     std::uint64_t size)
{
    const Minidump::CLocation place = m_file.Reserve(size);
    for (std::uint64_t done = 0; done < size;)
    {
        const std::size_t part =
            std::min<std::size_t>(size - done, sizeof(g_block));
        ReadCrashMemoryOrZeros(start + done, g_block, part);
        m_file.Fill({0, static_cast<std::uint32_t>(place.rva + done)}, g_block,
                    part);
        done += part;
    }
    const Minidump::CMemoryDescriptor memory = {start, place};
    ListMemory(memory);
    return memory;
}

void CCrashStreams::AddMemoryAround(std::uint64_t address, std::uint64_t reach)
{
    const CCrashMapping* mapping = g_maps.Find(address);
    if (mapping == nullptr || !mapping->readable)
        return;
    const auto holdsIt = [address](const Minidump::CMemoryDescriptor& memory)
    {
        return memory.start <= address &&
               address - memory.start < memory.memory.size;
    };
    if (std::any_of(g_memory, g_memory + m_memoryCount, holdsIt))
        return;
    const std::uint64_t start =
        address - std::min(reach, address - mapping->start);
    const std::uint64_t end = address + std::min(reach, mapping->end - address);
    AddMemory(start, end - start);
}

void CCrashStreams::AddMemoryList()
{
    AddList(m_file, Minidump::EStream::MemoryList, g_memory, m_memoryCount);
}

void CCrashStreams::AddProcFile(Minidump::EStream type, const char* name)
{
    char path[64];
    CCrashText text(path, sizeof(path));
    text.Add("/proc/").AddNumber(m_cause.process).Add("/").Add(name);
    AddFile(type, path);
}

void CCrashStreams::AddFile(Minidump::EStream type, const char* path)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    const std::size_t size = ReadWhole(file, g_block, sizeof(g_block));
    close(file);
    m_file.AddStream(type, m_file.Append(g_block, size));
}

void CCrashStreams::AddAllMemory()
{
    const auto isWanted = [](const CCrashMapping& mapping)
    { return mapping.readable && !mapping.excluded; };
    const auto count = static_cast<std::uint64_t>(
        std::count_if(g_maps.begin(), g_maps.end(), isWanted));
    const std::size_t size = sizeof(Minidump::CMemory64Head) +
                             count * sizeof(Minidump::CMemoryDescriptor64);
    const Minidump::CLocation list = m_file.Reserve(size);
    const Minidump::CMemory64Head head = {count, m_file.Position()};
    m_file.Fill(list, &head, sizeof(head));
    auto at = static_cast<std::uint32_t>(list.rva + sizeof(head));
    for (const CCrashMapping& mapping : g_maps)
    {
        if (!isWanted(mapping))
            continue;
        const Minidump::CMemoryDescriptor64 range = {
            mapping.start, mapping.end - mapping.start};
        m_file.Fill({0, at}, &range, sizeof(range));
        at += sizeof(range);
        for (std::uint64_t from = mapping.start;
             from < mapping.end && m_file.Error() == 0;)
        {
            const std::size_t part =
                std::min<std::size_t>(mapping.end - from, sizeof(g_block));
            ReadCrashMemoryOrZeros(from, g_block, part);
            m_file.AppendRaw(g_block, part);
            from += part;
            NoteCrashProgress();
        }
    }
    m_file.AddStream(Minidump::EStream::Memory64List, list);
}

} // namespace KzaCore
