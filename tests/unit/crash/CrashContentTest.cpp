// SPDX-License-Identifier: Apache-2.0
//
// What a dump holds and what it does not.

#include "unit/crash/CrashFixture.h"

#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>

#include <sys/mman.h>

using namespace KzaCore;
using namespace TestSupport;
using Minidump::EStream;

namespace
{

class CrashContent : public CCrashTest
{
};

// A text in a code, so that the process holds the text itself only where it has
// written it.
constexpr char kCodedMarker[] = "uif!nbslfs!jo!nfnpsz";

void WriteMarker(char* to)
{
    for (const char* c = kCodedMarker; *c != '\0'; c++)
        *to++ = static_cast<char>(*c - 1);
    asm volatile("" : : "r"(to) : "memory"); // keeps the writes
}

std::string Marker()
{
    char text[sizeof(kCodedMarker)] = {};
    WriteMarker(text);
    return text;
}

} // namespace

TEST_F(CrashContent, FaultShowsItsCodeAndAddress)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto exception =
        dump.At<Minidump::CException>(dump.Stream(EStream::Exception).rva);
    EXPECT_EQ(exception.address, kFaultAddress);
    EXPECT_EQ(exception.flags, static_cast<unsigned>(SEGV_MAPERR));
    EXPECT_EQ(dump.NoteValue("code"), "1");
    EXPECT_EQ(dump.NoteValue("address"), "0x1230");
}

TEST_F(CrashContent, SentSignalShowsItsSender)
{
    ExpectKilledBy(SIGSEGV, Crash([] { kill(getpid(), SIGSEGV); }));
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("sender"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("address"), "");
}

TEST_F(CrashContent, NoteTellsWhoWhatAndWhen)
{
    const std::time_t before = std::time(nullptr);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("application"), "tool \u00fc");
    EXPECT_EQ(dump.NoteValue("version"), kCrashVersion);
    EXPECT_EQ(dump.NoteValue("process"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("thread"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("memory"), "stacks");
    EXPECT_EQ(dump.NoteValue("lua"), "not running");
    EXPECT_EQ(dump.NoteValue("time").size(), 20U);
    EXPECT_GE(dump.Header().time, static_cast<std::uint32_t>(before));
    // time() may lag behind the clock that the dump was dated by.
    const auto now = std::chrono::system_clock::now();
    EXPECT_LE(dump.Header().time, std::chrono::system_clock::to_time_t(now));
}

TEST_F(CrashContent, NoteIsInTheMemoryThatADebuggerShows)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    bool found = false;
    for (const auto& memory :
         dump.List<Minidump::CMemoryDescriptor>(EStream::MemoryList))
        found |= dump.Bytes(memory.memory).rfind("application: tool", 0) == 0;
    EXPECT_TRUE(found);
}

TEST_F(CrashContent, DumpHasEveryStream)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto system =
        dump.At<Minidump::CSystemInfo>(dump.Stream(EStream::SystemInfo).rva);
    EXPECT_EQ(system.platform, Minidump::kPlatformLinux);
    EXPECT_GE(system.processorCount, 1);
    EXPECT_EQ(dump.String(system.versionTextRva).rfind("Linux ", 0), 0U);
    const auto misc =
        dump.At<Minidump::CMiscInfo>(dump.Stream(EStream::MiscInfo).rva);
    EXPECT_EQ(misc.processId, static_cast<unsigned>(m_child));
    EXPECT_NE(dump.Text(EStream::LinuxMaps).find("[stack]"), std::string::npos);
    EXPECT_NE(dump.Text(EStream::LinuxProcStatus)
                  .find("Pid:\t" + std::to_string(m_child)),
              std::string::npos);
    EXPECT_NE(dump.Text(EStream::LinuxCmdLine), "");
    EXPECT_NE(dump.Text(EStream::LinuxCpuInfo), "");
    EXPECT_NE(dump.Stream(EStream::LinuxAuxv).size, 0U);
}

TEST_F(CrashContent, ModulesHaveBuildIdentifiersAndVersions)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto modules = dump.List<Minidump::CModule>(EStream::ModuleList);
    bool self = false;
    bool libc = false;
    for (const auto& module : modules)
    {
        const std::string name = dump.String(module.nameRva);
        SCOPED_TRACE(name);
        EXPECT_EQ(dump.At<std::uint32_t>(module.cvRecord.rva),
                  Minidump::kCvElfBuildId);
        EXPECT_GT(module.cvRecord.size, 4U);
        EXPECT_GT(module.size, 0U);
        if (name == std::filesystem::read_symlink("/proc/self/exe"))
        {
            self = true;
            EXPECT_EQ(module.version.fileVersionHigh, 12U << 16);
            EXPECT_EQ(module.version.fileVersionLow, 2932U);
        }
        if (name.find("/libc.so.6") != std::string::npos)
        {
            libc = true;
            EXPECT_EQ(module.version.fileVersionHigh, 6U << 16);
        }
    }
    EXPECT_TRUE(self);
    EXPECT_TRUE(libc);
}

TEST_F(CrashContent, StackIsThatOfTheCrashedThread)
{
    const CShared<std::uint64_t> frame;
    const int status = Crash(
        [&frame]
        {
            *frame =
                reinterpret_cast<std::uint64_t>(__builtin_frame_address(0));
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    const auto threads =
        CDumpReader(Dump()).List<Minidump::CThread>(EStream::ThreadList);
    ASSERT_FALSE(threads.empty());
    EXPECT_LE(threads[0].stack.start, *frame);
    EXPECT_GT(threads[0].stack.start + threads[0].stack.memory.size, *frame);
}

TEST_F(CrashContent, MemoryAroundTheFaultIsThere)
{
    const int status = Crash(
        []
        {
            char* page = static_cast<char*>(mmap(
                nullptr, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            mprotect(page, 8192, PROT_READ | PROT_WRITE);
            WriteMarker(page + 4000);
            mprotect(page, 8192, PROT_READ);
            *static_cast<volatile char*>(page + 4096) = 0;
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(CDumpReader(Dump()).Holds(Marker()));
}

TEST_F(CrashContent, EnvironmentStaysOut)
{
    const char* path = std::getenv("PATH");
    ASSERT_NE(path, nullptr);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    EXPECT_FALSE(CDumpReader(Dump()).Holds("PATH=" + std::string(path)));
}

TEST_F(CrashContent, FullDumpHasAllMemory)
{
    const auto fill = []
    {
        const auto block = std::make_unique<char[]>(100000);
        WriteMarker(block.get() + 50000);
        FaultSegv();
    };
    ExpectKilledBy(SIGSEGV, Crash(fill));
    EXPECT_FALSE(CDumpReader(Dump()).Holds(Marker()));
    ExpectKilledBy(SIGSEGV, Crash(fill, true));
    const CDumpReader dump(Dump());
    EXPECT_TRUE(dump.Holds(Marker()));
    EXPECT_EQ(dump.Header().flags, Minidump::kWithFullMemory);
    EXPECT_EQ(dump.NoteValue("memory"), "full");

    const auto place = dump.Stream(EStream::Memory64List);
    const auto head = dump.At<Minidump::CMemory64Head>(place.rva);
    std::uint64_t bytes = 0;
    for (std::uint64_t i = 0; i < head.count; i++)
        bytes += dump.At<Minidump::CMemoryDescriptor64>(
                         place.rva + sizeof(head) +
                         i * sizeof(Minidump::CMemoryDescriptor64))
                     .size;
    EXPECT_GT(head.count, 10U);
    EXPECT_EQ(head.baseRva + bytes, dump.Size());
}

TEST_F(CrashContent, MemoryNotToBeDumpedStaysOutOfAFullDump)
{
    const auto fill = []
    {
        auto* page =
            static_cast<char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        madvise(page, 4096, MADV_DONTDUMP);
        WriteMarker(page);
        FaultSegv();
    };
    ExpectKilledBy(SIGSEGV, Crash(fill, true));
    EXPECT_FALSE(CDumpReader(Dump()).Holds(Marker()));
}
