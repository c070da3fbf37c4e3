// SPDX-License-Identifier: Apache-2.0
//
// What a process leaves behind when it dies of a fault. Each test lets a child
// die and looks at its status and its dump.

#include "kza_core/CrashHandler.h"
#include "CrashStack.h"
#include "DumpReader.h"
#include "kza_core/Dom.h"
#include "platform/linux/CrashDump.h"
#include "platform/linux/CrashNote.h"
#include "support/HardwareFaults.h"
#include "support/Process.h"

#include <gtest/gtest.h>

#include <wx/log.h>
#include <wx/string.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;
using Minidump::EStream;

namespace
{

constexpr char kVersion[] = "12.0.0.2932";

class CrashHandler : public testing::Test
{
protected:
    // Lets a child run the work with the handler armed. The result is what
    // waitpid() tells of it.
    int Crash(const std::function<void()>& work, bool full = false)
    {
        return InChild(
            [&]
            {
                InitCrashHandler(wxString::FromUTF8(Dump()), wxS("tool \u00fc"),
                                 full);
                work();
            });
    }

    int InChild(const std::function<void()>& work)
    {
        fflush(nullptr);
        m_child = fork();
        if (m_child == 0)
        {
            BecomeCrashing();
            work();
            _exit(0);
        }
        int status = -1;
        waitpid(m_child, &status, 0);
        return status;
    }

    // Nothing on the terminal, no core file, the version as the agent sets it.
    void BecomeCrashing() const
    {
        const int err = open(Err().c_str(),
                             O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(err, STDERR_FILENO);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        CDom* dom = CDom::New(nullptr, nullptr, nullptr, false);
        dom->Set(DomKey::kVersion, kVersion);
        delete wxLog::SetActiveTarget(new wxLogStderr);
    }

    [[nodiscard]] std::string Dump() const { return m_dir.File("t.mdmp"); }
    [[nodiscard]] std::string Previous() const { return Dump() + ".1"; }
    [[nodiscard]] std::string Err() const { return m_dir.File("stderr"); }

    [[nodiscard]] std::set<std::string> Files() const
    {
        std::set<std::string> names;
        for (const auto& entry :
             std::filesystem::directory_iterator(m_dir.Path()))
            names.insert(entry.path().filename());
        names.erase("stderr");
        return names;
    }

    CTempDir m_dir;
    pid_t m_child = 0;
};

void ExpectKilledBy(int signal, int status)
{
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal)
        << "status " << status;
}

// A text that is nowhere in the program until it is made.
std::string Marker()
{
    std::string text = "uif!nbslfs!jo!nfnpsz";
    for (char& c : text)
        c = static_cast<char>(c - 1);
    return text;
}

void WriteMarker(char* to)
{
    const std::string text = Marker();
    std::memcpy(to, text.c_str(), text.size());
    asm volatile("" : : "r"(to) : "memory"); // somebody might read it
}

void CrashByTerminate()
{
    std::set_terminate(std::abort);
    std::terminate();
}

void OverflowStack()
{
    FaultStackOverflow(0);
}

} // namespace

TEST_F(CrashHandler, EachFaultLeavesADumpAndItsSignal)
{
    const struct
    {
        const char* name;
        void (*fault)();
        int signal;
    } cases[] = {
        {"SIGSEGV", FaultSegv, SIGSEGV},
        {"SIGBUS", FaultBus, SIGBUS},
        {"SIGILL", FaultIll, SIGILL},
        {"SIGFPE", FaultFpe, SIGFPE},
        {"SIGTRAP", FaultTrap, SIGTRAP},
        {"SIGABRT", std::abort, SIGABRT},
        {"SIGABRT", CrashByTerminate, SIGABRT},
        {"SIGSEGV", OverflowStack, SIGSEGV},
    };
    for (const auto& one : cases)
    {
        SCOPED_TRACE(one.name);
        const int status = Crash(one.fault);
        ExpectKilledBy(one.signal, status);
        const CDumpReader dump(Dump());
        const auto exception =
            dump.At<Minidump::Exception>(dump.Stream(EStream::Exception).rva);
        EXPECT_EQ(exception.code, static_cast<unsigned>(one.signal));
        EXPECT_EQ(exception.threadId, static_cast<unsigned>(m_child));
        EXPECT_EQ(dump.NoteValue("signal"),
                  std::to_string(one.signal) + " (" + one.name + ")");
        std::filesystem::remove(Dump());
    }
}

TEST_F(CrashHandler, FaultShowsItsCodeAndAddress)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto exception =
        dump.At<Minidump::Exception>(dump.Stream(EStream::Exception).rva);
    EXPECT_EQ(exception.address, kFaultAddress);
    EXPECT_EQ(exception.flags, static_cast<unsigned>(SEGV_MAPERR));
    EXPECT_EQ(dump.NoteValue("code"), "1");
    EXPECT_EQ(dump.NoteValue("address"), "0x1230");
}

TEST_F(CrashHandler, SentSignalShowsItsSender)
{
    ExpectKilledBy(SIGSEGV, Crash([] { kill(getpid(), SIGSEGV); }));
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("sender"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("address"), "");
}

TEST_F(CrashHandler, NoteTellsWhoWhatAndWhen)
{
    const std::time_t before = std::time(nullptr);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("application"), "tool \u00fc");
    EXPECT_EQ(dump.NoteValue("version"), kVersion);
    EXPECT_EQ(dump.NoteValue("process"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("thread"), std::to_string(m_child));
    EXPECT_EQ(dump.NoteValue("memory"), "stacks");
    EXPECT_EQ(dump.NoteValue("lua"), "not running");
    EXPECT_EQ(dump.NoteValue("time").size(), 20U);
    EXPECT_GE(dump.Header().time, static_cast<std::uint32_t>(before));
    EXPECT_LE(dump.Header().time,
              static_cast<std::uint32_t>(std::time(nullptr)));
}

TEST_F(CrashHandler, NoteIsInTheMemoryThatADebuggerShows)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    bool found = false;
    for (const auto& memory :
         dump.List<Minidump::MemoryDescriptor>(EStream::MemoryList))
        found |= dump.Bytes(memory.memory).rfind("application: tool", 0) == 0;
    EXPECT_TRUE(found);
}

TEST_F(CrashHandler, DumpHasEveryStream)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto system =
        dump.At<Minidump::SystemInfo>(dump.Stream(EStream::SystemInfo).rva);
    EXPECT_EQ(system.architecture, Minidump::kArchitectureAmd64);
    EXPECT_EQ(system.platform, Minidump::kPlatformLinux);
    EXPECT_GE(system.processorCount, 1);
    EXPECT_EQ(dump.String(system.versionTextRva).rfind("Linux ", 0), 0U);
    const auto misc =
        dump.At<Minidump::MiscInfo>(dump.Stream(EStream::MiscInfo).rva);
    EXPECT_EQ(misc.processId, static_cast<unsigned>(m_child));
    EXPECT_NE(dump.Text(EStream::LinuxMaps).find("[stack]"), std::string::npos);
    EXPECT_NE(dump.Text(EStream::LinuxProcStatus)
                  .find("Pid:\t" + std::to_string(m_child)),
              std::string::npos);
    EXPECT_NE(dump.Text(EStream::LinuxCmdLine), "");
    EXPECT_NE(dump.Text(EStream::LinuxCpuInfo), "");
    EXPECT_NE(dump.Stream(EStream::LinuxAuxv).size, 0U);
}

TEST_F(CrashHandler, ModulesHaveBuildIdentifiersAndVersions)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const CDumpReader dump(Dump());
    const auto modules = dump.List<Minidump::Module>(EStream::ModuleList);
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

TEST_F(CrashHandler, RegistersAreThoseOfTheFault)
{
    const int status = Crash(
        []
        {
            asm volatile("movq $0x1234567890abcdef, %%r13\n\t"
                         "movl $0, (%0)"
                         :
                         : "r"(kFaultAddress)
                         : "r13", "memory");
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto exception =
        dump.At<Minidump::Exception>(dump.Stream(EStream::Exception).rva);
    const auto context = dump.At<Minidump::ContextAmd64>(exception.context.rva);
    EXPECT_EQ(context.r13, 0x1234567890abcdefU);
    const auto threads = dump.List<Minidump::Thread>(EStream::ThreadList);
    ASSERT_FALSE(threads.empty());
    EXPECT_LE(threads[0].stack.start, context.rsp);
    EXPECT_GT(threads[0].stack.start + threads[0].stack.memory.size,
              context.rsp);
}

TEST_F(CrashHandler, MemoryAroundTheFaultIsThere)
{
    const int status = Crash(
        []
        {
            char* page = static_cast<char*>(mmap(
                nullptr, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            mprotect(page, 8192, PROT_READ | PROT_WRITE);
            WriteMarker(page + 4000);
            mprotect(page, 8192, PROT_READ);
            asm volatile("movl $0, (%0)" : : "r"(page + 4096) : "memory");
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(CDumpReader(Dump()).Holds(Marker()));
}

TEST_F(CrashHandler, EnvironmentStaysOut)
{
    const char* path = std::getenv("PATH");
    ASSERT_NE(path, nullptr);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    EXPECT_FALSE(CDumpReader(Dump()).Holds("PATH=" + std::string(path)));
}

TEST_F(CrashHandler, DumpIsForItsOwnerAlone)
{
    umask(0);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    struct stat facts = {};
    ASSERT_EQ(stat(Dump().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0600U);
}

TEST_F(CrashHandler, DumpBeforeIsKept)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const std::string first = std::to_string(m_child);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
    ExpectKilledBy(SIGILL, Crash(FaultIll));
    const std::string second = std::to_string(m_child);
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"), second);
    EXPECT_EQ(CDumpReader(Previous()).NoteValue("process"), first);
    ExpectKilledBy(SIGFPE, Crash(FaultFpe));
    EXPECT_EQ(CDumpReader(Previous()).NoteValue("process"), second);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp", "t.mdmp.1"}));
}

TEST_F(CrashHandler, FullDumpHasAllMemory)
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
    const auto head = dump.At<Minidump::Memory64Head>(place.rva);
    std::uint64_t bytes = 0;
    for (std::uint64_t i = 0; i < head.count; i++)
        bytes += dump.At<Minidump::MemoryDescriptor64>(
                         place.rva + sizeof(head) +
                         i * sizeof(Minidump::MemoryDescriptor64))
                     .size;
    EXPECT_GT(head.count, 10U);
    EXPECT_EQ(head.baseRva + bytes, dump.Size());
}

TEST_F(CrashHandler, MemoryNotToBeDumpedStaysOutOfAFullDump)
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

TEST_F(CrashHandler, EveryThreadIsThere)
{
    constexpr int kThreads = 50;
    const int status = Crash(
        []
        {
            for (int i = 0; i < kThreads; i++)
                std::thread([] { pause(); }).detach();
            std::thread(FaultSegv).join();
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto threads = dump.List<Minidump::Thread>(EStream::ThreadList);
    const int own = std::string(KZA_SANITIZE) == "thread" ? 1 : 0;
    EXPECT_EQ(threads.size(), kThreads + 2U + own);
    EXPECT_NE(dump.NoteValue("thread"), dump.NoteValue("process"));
    std::set<std::uint32_t> ids;
    for (const auto& thread : threads)
    {
        ids.insert(thread.id);
        EXPECT_EQ(thread.context.size, sizeof(Minidump::ContextAmd64));
        EXPECT_GT(thread.stack.memory.size, 0U);
    }
    EXPECT_EQ(ids.size(), threads.size());
    EXPECT_EQ(std::to_string(threads[0].id), dump.NoteValue("thread"));
}

TEST_F(CrashHandler, EveryThreadMayOverflowItsStack)
{
    const int status = Crash([] { std::thread(OverflowStack).join(); });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto threads = dump.List<Minidump::Thread>(EStream::ThreadList);
    ASSERT_GE(threads.size(), 2U);
    EXPECT_GT(threads[0].stack.memory.size, 100000U);
}

TEST_F(CrashHandler, CrashStackGivesBackTheOneBefore)
{
    stack_t before = {};
    sigaltstack(nullptr, &before);
    {
        const CCrashStack crashStack;
        stack_t meanwhile = {};
        sigaltstack(nullptr, &meanwhile);
        EXPECT_NE(meanwhile.ss_sp, before.ss_sp);
        EXPECT_GE(meanwhile.ss_size, 65536U);
    }
    stack_t after = {};
    sigaltstack(nullptr, &after);
    EXPECT_EQ(after.ss_sp, before.ss_sp);
    EXPECT_EQ(after.ss_flags, before.ss_flags);
}

TEST_F(CrashHandler, SeveralThreadsThatCrashLeaveOneDump)
{
    const int status = Crash(
        []
        {
            for (int i = 0; i < 8; i++)
                std::thread(FaultIll).detach();
            pause();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"),
              std::to_string(m_child));
}

TEST_F(CrashHandler, ForkedWorkerDumpsUnderItsOwnIdentity)
{
    pid_t* worker =
        static_cast<pid_t*>(mmap(nullptr, sizeof(pid_t), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const int status = Crash(
        [worker]
        {
            const pid_t child = fork();
            if (child == 0)
                FaultSegv();
            *worker = child;
            int end = 0;
            waitpid(child, &end, 0);
            _exit(WIFSIGNALED(end) ? WTERMSIG(end) : 0);
        });
    EXPECT_EQ(WEXITSTATUS(status), SIGSEGV);
    EXPECT_NE(*worker, m_child);
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"),
              std::to_string(*worker));
    munmap(worker, sizeof(pid_t));
}

TEST_F(CrashHandler, BrokenHeapDoesNotMatter)
{
    const int status = Crash(
        []
        {
            // Every list of the allocator, and whatever else is near.
            auto* block = static_cast<char*>(malloc(64));
            asm volatile("" : "+r"(block));
            const std::size_t damage = 100000;
            for (std::size_t i = 0; i < damage; i++)
                asm volatile("movb $0xa5, (%0)" : : "r"(block + i) : "memory");
            std::abort();
        });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"),
              std::to_string(m_child));
}

TEST_F(CrashHandler, ProcessWithoutAFreeDescriptorLeavesADump)
{
    const int status = Crash(
        []
        {
            while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0)
                ;
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
}

TEST_F(CrashHandler, DirectoryMadeAnewAfterArmingIsFound)
{
    const std::string directory = m_dir.File("diag");
    std::filesystem::create_directory(directory);
    const int status = InChild(
        [&]
        {
            InitCrashHandler(wxString::FromUTF8(directory + "/t.mdmp"),
                             wxS("tool"), false);
            std::filesystem::remove(directory);
            std::filesystem::create_directory(directory);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(FileExists(directory + "/t.mdmp"));
}

TEST_F(CrashHandler, DirectoryOutOfReachAfterArmingIsFound)
{
    const std::string root = m_dir.File("root");
    std::filesystem::create_directory(root);
    const int status = Crash(
        [&root]
        {
            EnterMountNamespace(); // gives the right to the next step
            if (chroot(root.c_str()) != 0 || chdir("/") != 0)
                _exit(1);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(FileExists(Dump()));
}

TEST_F(CrashHandler, FullDiskLeavesNothingAndKeepsTheDumpBefore)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const std::string first = std::to_string(m_child);
    const int status = Crash(
        []
        {
            // To the writer the same as a full disk: no more bytes.
            const rlimit small = {10000, 10000};
            setrlimit(RLIMIT_FSIZE, &small);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"), first);
    EXPECT_NE(ReadFile(Err()).find(": signal 11, no dump in " + Dump() +
                                   " (error 27)\n"),
              std::string::npos);
}

TEST_F(CrashHandler, StandardErrorNamesTheDump)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    EXPECT_EQ(ReadFile(Err()),
              "tool \u00fc: signal 11, dump in " + Dump() + "\n");
}

TEST_F(CrashHandler, DirectoryThatCannotBeWrittenIsLoggedAtArming)
{
    const int status = InChild(
        []
        {
            InitCrashHandler(wxS("/proc/no-such/t.mdmp"), wxS("tool"), false);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    const std::string err = ReadFile(Err());
    EXPECT_NE(err.find("Crash dumps cannot be written into "
                       "'/proc/no-such' (error 2: "),
              std::string::npos)
        << err;
    EXPECT_NE(err.find("no dump in /proc/no-such/t.mdmp (error "),
              std::string::npos)
        << err;
}

TEST_F(CrashHandler, LeftoversOfDeadProcessesGoAtArming)
{
    const int status = InChild([] {});
    ASSERT_EQ(status, 0);
    const std::string dead = "t.mdmp." + std::to_string(m_child) + ".tmp";
    const std::string alive = "t.mdmp." + std::to_string(getpid()) + ".tmp";
    const std::string others[] = {alive, "t.mdmp.1", "t.mdmp.x.tmp",
                                  "t.mdmp.1x.tmp", "u.mdmp.1.tmp"};
    WriteFile(m_dir.File(dead), "x");
    for (const std::string& name : others)
        WriteFile(m_dir.File(name), "x");
    Crash([] {});
    EXPECT_EQ(Files(),
              std::set<std::string>(std::begin(others), std::end(others)));
}

namespace
{

int HangingWriter(const CrashPlan& plan, const CrashCause& cause)
{
    close(openat(plan.directoryFd, cause.unfinishedName, O_CREAT, 0600));
    for (;;)
        pause();
}

int FaultingWriter(const CrashPlan& plan, const CrashCause& cause)
{
    close(openat(plan.directoryFd, cause.unfinishedName, O_CREAT, 0600));
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGSEGV, &action, nullptr);
    FaultSegv();
    return 0;
}

// Slow, but getting on.
int SlowWriter(const CrashPlan& plan, const CrashCause& cause)
{
    for (int i = 0; i < 60; i++)
    {
        NoteCrashProgress();
        const timespec pause = {0, 100000000};
        nanosleep(&pause, nullptr);
    }
    close(openat(plan.directoryFd, plan.fileName, O_CREAT, 0600));
    (void)cause;
    return 0;
}

// Makes the thread that waits in the handler jump to nowhere, and then gives
// it every reason to wait on.
int SabotagingWriter(const CrashPlan& /*plan*/, const CrashCause& cause)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    user_regs_struct registers = {};
    ptrace(PTRACE_SEIZE, cause.thread, nullptr, nullptr);
    ptrace(PTRACE_INTERRUPT, cause.thread, nullptr, nullptr);
    waitpid(cause.thread, nullptr, __WALL);
    ptrace(PTRACE_GETREGS, cause.thread, nullptr, &registers);
    registers.rip = kFaultAddress;
    registers.orig_rax = ~0ULL; // no system call to go back to
    ptrace(PTRACE_SETREGS, cause.thread, nullptr, &registers);
    ptrace(PTRACE_DETACH, cause.thread, nullptr, nullptr);
    for (;;)
        NoteCrashProgress();
}

// Sends the waiting process each signal that could mean a second fault.
int SignallingWriter(const CrashPlan& plan, const CrashCause& cause)
{
    for (const int signal : kCrashSignals)
        kill(cause.process, signal);
    const timespec pause = {0, 100000000};
    nanosleep(&pause, nullptr);
    close(openat(plan.directoryFd, plan.fileName, O_CREAT, 0600));
    return 0;
}

CrashPlan PlanFor(const std::string& directory)
{
    CrashPlan plan = {};
    plan.directoryFd =
        open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    directory.copy(plan.directory, sizeof(plan.directory) - 1);
    std::memcpy(plan.fileName, "t.mdmp", 7);
    std::memcpy(plan.application, "tool", 5);
    return plan;
}

} // namespace

TEST_F(CrashHandler, HelperThatHangsDoesNotKeepTheProcess)
{
    const auto start = std::chrono::steady_clock::now();
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), HangingWriter);
            FaultIll();
        });
    const auto time = std::chrono::steady_clock::now() - start;
    ExpectKilledBy(SIGILL, status);
    EXPECT_LT(time, std::chrono::seconds(60));
    EXPECT_EQ(Files(), std::set<std::string>());
}

TEST_F(CrashHandler, HelperThatFaultsLeavesTheSignalAlone)
{
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), FaultingWriter);
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(Files(), std::set<std::string>());
}

TEST_F(CrashHandler, HelperThatGetsOnIsGivenItsTime)
{
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SlowWriter);
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
}

TEST_F(CrashHandler, FaultInTheHandlerStillEndsInTheFirstSignal)
{
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SabotagingWriter);
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
}

TEST_F(CrashHandler, SignalSentWhileDumpingChangesNothing)
{
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SignallingWriter);
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
}

TEST_F(CrashHandler, WaitingForAnyChildDoesNotMeetTheHelper)
{
    auto* met = static_cast<std::atomic<pid_t>*>(
        mmap(nullptr, sizeof(std::atomic<pid_t>), PROT_READ | PROT_WRITE,
             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const int status = InChild(
        [this, met]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SignallingWriter);
            const pid_t child = fork();
            if (child == 0)
            {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                pause();
            }
            std::thread([met] { *met = waitpid(-1, nullptr, 0); }).detach();
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(*met, 0);
    munmap(met, sizeof(*met));
}
