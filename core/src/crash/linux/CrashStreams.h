// SPDX-License-Identifier: Apache-2.0
//
// The content of a dump: the streams of a minidump about the crashed process.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/MinidumpFile.h"
#include "crash/linux/CrashRegisters.h"
#include "crash/linux/CrashSignals.h"

namespace KzaCore
{

class CCrashStreams
{
public:
    /// The arguments outlive the object.
    CCrashStreams(const CCrashPlan& plan,
                  const CCrashCause& cause,
                  CMinidumpFile& file);

    /// Stops the process's threads, which go on when the helper ends, and
    /// writes all streams. At most once in the life of a helper.
    ///
    /// \return 0, or the errno of the first write that failed.
    int Write();

private:
    void AddSystemInfo();
    void AddMiscInfo();
    void AddException();
    void AddThreads();
    Minidump::CThread DescribeThread(pid_t id,
                                     const CCrashRegisters& registers);
    void AddModules();
    Minidump::CFixedFileInfo VersionOf(const struct CCrashModule& module) const;
    void AddNote();
    void AddMemoryList();
    void AddProcFile(Minidump::EStream type, const char* name);
    void AddFile(Minidump::EStream type, const char* path);
    void AddAllMemory();

    // Blocks of memory. Each block is in the file once, and in the memory list.
    Minidump::CMemoryDescriptor AddMemory(std::uint64_t start,
                                          std::uint64_t size);
    void AddMemoryAround(std::uint64_t address, std::uint64_t reach);
    void ListMemory(const Minidump::CMemoryDescriptor& memory);

    const CCrashPlan& m_plan;
    const CCrashCause& m_cause;
    CMinidumpFile& m_file;
    CCrashRegisters m_crashedRegisters = {}; // of the crashed thread
    std::size_t m_stoppedCount = 0;          // other threads
    std::size_t m_memoryCount = 0;           // blocks that AddMemory() wrote
};

} // namespace KzaCore
