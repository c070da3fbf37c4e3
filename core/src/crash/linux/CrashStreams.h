// SPDX-License-Identifier: Apache-2.0
//
// What a dump says: the streams of a minidump about the crashed process.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/MinidumpFile.h"
#include "crash/linux/CrashSignals.h"
#include "crash/linux/CrashThreads.h"

namespace KzaCore
{

class CCrashStreams
{
public:
    /// Nothing is copied and nothing owned.
    CCrashStreams(const CrashPlan& plan,
                  const CrashCause& cause,
                  CMinidumpFile& file);

    /// Stops the process's threads, which go on when the helper ends, and
    /// writes everything. Not more than once in the life of a helper.
    ///
    /// \return 0, or the errno of the first write that failed.
    int Write();

private:
    void AddSystemInfo();
    void AddMiscInfo();
    void AddException();
    void AddThreads();
    Minidump::Thread DescribeThread(pid_t id,
                                    const Minidump::ContextAmd64& context);
    void AddModules();
    Minidump::FixedFileInfo VersionOf(const struct CrashModule& module) const;
    void AddNote();
    void AddMemoryList();
    void AddProcFile(Minidump::EStream type, const char* name);
    void AddFile(Minidump::EStream type, const char* path);
    void AddAllMemory();

    // Blocks of memory; each is in the file once, and in the memory list.
    Minidump::MemoryDescriptor AddMemory(std::uint64_t start,
                                         std::uint64_t size);
    void AddMemoryAround(std::uint64_t address, std::uint64_t reach);
    void ListMemory(const Minidump::MemoryDescriptor& memory);

    const CrashPlan& m_plan;
    const CrashCause& m_cause;
    CMinidumpFile& m_file;
    Minidump::ContextAmd64 m_context = {}; // of the crashed thread
    std::size_t m_stopped = 0;
    std::size_t m_memoryCount = 0;
};

} // namespace KzaCore
