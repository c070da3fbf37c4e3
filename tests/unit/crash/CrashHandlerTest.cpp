// SPDX-License-Identifier: Apache-2.0
//
// How a process dies of a fault, also when its memory or threads are in
// disorder.

#include "crash/CrashLua.h"
#include "kza_core/Runnable.h"
#include "support/Process.h"
#include "unit/crash/CrashFixture.h"

#include <wx/init.h>

#include <atomic>
#include <cstring>
#include <exception>
#include <string_view>
#include <thread>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

using namespace KzaCore;
using namespace TestSupport;
using Minidump::EStream;

namespace
{

class CrashHandler : public CCrashTest
{
};

void CrashByTerminate()
{
    std::set_terminate(std::abort);
    std::terminate();
}

void OverflowStack()
{
    FaultStackOverflow(0);
}

class COverflowing : public CRunnable
{
public:
    COverflowing() : CRunnable(false, -1, false) {}
    void OnRun() override { OverflowStack(); }
};

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
            dump.At<Minidump::CException>(dump.Stream(EStream::Exception).rva);
        EXPECT_EQ(exception.code, static_cast<unsigned>(one.signal));
        EXPECT_EQ(exception.threadId, static_cast<unsigned>(m_child));
        EXPECT_EQ(dump.NoteValue("signal"),
                  std::to_string(one.signal) + " (" + one.name + ")");
        std::filesystem::remove(Dump());
    }
}

TEST_F(CrashHandler, EveryThreadIsThere)
{
    const CShared<std::size_t> count;
    const int status = Crash(
        [&count]
        {
            for (int i = 0; i < 50; i++)
                std::thread([] { pause(); }).detach();
            std::thread(
                [&count]
                {
                    *count = CountThreads();
                    FaultSegv();
                })
                .join();
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto threads = dump.List<Minidump::CThread>(EStream::ThreadList);
    EXPECT_GE(*count, 52U);
    EXPECT_EQ(threads.size(), *count);
    EXPECT_NE(dump.NoteValue("thread"), dump.NoteValue("process"));
    std::set<std::uint32_t> ids;
    for (const auto& thread : threads)
    {
        ids.insert(thread.id);
        EXPECT_EQ(thread.context.size, threads[0].context.size);
        EXPECT_GT(thread.stack.memory.size, 0U);
    }
    EXPECT_EQ(ids.size(), threads.size());
    EXPECT_EQ(std::to_string(threads[0].id), dump.NoteValue("thread"));
}

TEST_F(CrashHandler, ThreadOfTheAgentMayOverflowItsStack)
{
    const int status = Crash(
        []
        {
            const wxInitializer framework; // its threads need it
            COverflowing thread;
            thread.start(wxPRIORITY_DEFAULT, true, 0);
            thread.join();
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    const auto threads = dump.List<Minidump::CThread>(EStream::ThreadList);
    ASSERT_GE(threads.size(), 2U);
    EXPECT_GT(threads[0].stack.memory.size, 100000U);
}

TEST_F(CrashHandler, OverflowOfAnotherThreadEndsInItsSignalWithoutADump)
{
    const int status = Crash([] { std::thread(OverflowStack).join(); });
    ExpectKilledBy(SIGSEGV, status);
    // The address sanitizer gives every thread a stack for its handlers.
    const bool hasStack =
        std::string_view(KZA_SANITIZE).find("address") != std::string::npos;
    EXPECT_EQ(FileExists(Dump()), hasStack);
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

TEST_F(CrashHandler, ExitDoesNotOvertakeASignalThatNoThreadHasTaken)
{
    const CShared<std::atomic<bool>> isSuspended;
    const int status = Crash(
        [&isSuspended]
        {
            std::thread(
                [&isSuspended]
                {
                    while (!*isSuspended)
                        sched_yield();
                    kill(getpid(), SIGSEGV);
                    std::exit(0);
                })
                .detach();
            // The signal is the main thread's to take, which cannot: the system
            // suspends it until the copy of the process ends.
            if (syscall(SYS_clone, CLONE_VFORK | SIGCHLD, 0, 0, 0, 0) == 0)
            {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                *isSuspended = true;
                pause();
            }
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(FileExists(Dump()));
}

TEST_F(CrashHandler, NoThreadGoesOnOnceTheDumpIsThere)
{
    const auto endWhenDumped = [this]
    {
        for (int i = 0; i < 4; i++)
            std::thread(
                [this]
                {
                    while (access(Dump().c_str(), F_OK) != 0)
                        ;
                    _exit(0); // as no at-exit function can hold up
                })
                .detach();
        FaultSegv();
    };
    for (int run = 0; run < 10; run++)
    {
        ExpectKilledBy(SIGSEGV, Crash(endWhenDumped));
        std::filesystem::remove(Dump());
    }
}

TEST_F(CrashHandler, FirstProcessOfAContainerEndsToo)
{
    // The system lets such a process ignore a signal that was sent to it.
    const int status = InChild(
        [this]
        {
            EnterMountNamespace(); // gives the right to the next step
            if (unshare(CLONE_NEWPID) != 0)
                _exit(1);
            const pid_t first = fork();
            if (first == 0)
            {
                InitCrashHandler(wxString::FromUTF8(Dump()), wxS("tool"),
                                 false);
                raise(SIGSEGV);
                _exit(2);
            }
            int end = 0;
            waitpid(first, &end, 0);
            _exit(WIFEXITED(end) ? WEXITSTATUS(end) : 3);
        });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGSEGV);
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"), "1");
}

TEST_F(CrashHandler, ForkedWorkerDumpsUnderItsOwnIdentity)
{
    const CShared<pid_t> worker;
    const int status = Crash(
        [&worker]
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
}

TEST_F(CrashHandler, BrokenHeapDoesNotMatter)
{
    const int status = Crash(FaultHeap);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"),
              std::to_string(m_child));
}

TEST_F(CrashHandler, BrokenLuaStateCostsTheTracebackAlone)
{
    const int status = Crash(
        []
        {
            static char garbage[4096];
            std::memset(garbage, 0xa5, sizeof(garbage));
            RememberLuaState(reinterpret_cast<lua_State*>(garbage));
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("lua"), "not running");
    EXPECT_NE(dump.Stream(EStream::MemoryList).size, 0U);
}

TEST_F(CrashHandler, TracedProcessLeavesADumpOfTheCrashedThread)
{
    // Where another process traces the threads, the helper may not.
    const CShared<std::size_t> count;
    StartChild(
        [this, &count]
        {
            InitCrashHandler(wxString::FromUTF8(Dump()), wxS("tool"), false);
            raise(SIGSTOP);
            std::thread([] { pause(); }).detach();
            *count = CountThreads();
            FaultSegv();
        });
    int status = 0;
    waitpid(m_child, &status, WUNTRACED);
    ASSERT_EQ(ptrace(PTRACE_SEIZE, m_child, nullptr, PTRACE_O_TRACECLONE), 0);
    kill(m_child, SIGCONT);
    pid_t changed = 0;
    while ((changed = waitpid(-1, &status, __WALL)) > 0)
        if (WIFSTOPPED(status))
            ptrace(PTRACE_CONT, changed, nullptr,
                   status >> 16 != 0 ? 0 : WSTOPSIG(status));
        else if (changed == m_child)
            break;
    ExpectKilledBy(SIGSEGV, status);
    const CDumpReader dump(Dump());
    EXPECT_EQ(dump.NoteValue("process"), std::to_string(m_child));
    const auto threads = dump.List<Minidump::CThread>(EStream::ThreadList);
    ASSERT_FALSE(threads.empty());
    EXPECT_LT(threads.size(), *count);
    EXPECT_EQ(threads[0].id, static_cast<unsigned>(m_child));
    EXPECT_GT(threads[0].stack.memory.size, 0U);
}
