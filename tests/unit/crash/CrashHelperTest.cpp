// SPDX-License-Identifier: Apache-2.0
//
// The process that writes the dump, and the one that waits for it.

#include "crash/linux/CrashSignals.h"
#include "unit/crash/CrashFixture.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <thread>

#include <elf.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

class CrashHelper : public CCrashTest
{
};

void HangingWriter(const CCrashPlan& plan, const CCrashCause& cause)
{
    close(openat(plan.directoryFd, cause.unfinishedName, O_CREAT, 0600));
    for (;;)
        pause();
}

void FaultingWriter(const CCrashPlan& plan, const CCrashCause& cause)
{
    close(openat(plan.directoryFd, cause.unfinishedName, O_CREAT, 0600));
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGSEGV, &action, nullptr);
    FaultSegv();
}

// Slow, but getting on.
void SlowWriter(const CCrashPlan& plan, const CCrashCause& cause)
{
    for (int i = 0; i < 60; i++)
    {
        NoteCrashProgress();
        const timespec pause = {0, 100000000};
        nanosleep(&pause, nullptr);
    }
    close(openat(plan.directoryFd, plan.fileName, O_CREAT, 0600));
    NoteCrashServed(cause);
}

// Makes the thread that waits in the handler jump to nowhere, and then gives
// it every reason to wait on.
void SabotagingWriter(const CCrashPlan& /*plan*/, const CCrashCause& cause)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    user_regs_struct registers = {};
    iovec place = {&registers, sizeof(registers)};
    ptrace(PTRACE_SEIZE, cause.thread, nullptr, nullptr);
    ptrace(PTRACE_INTERRUPT, cause.thread, nullptr, nullptr);
    waitpid(cause.thread, nullptr, __WALL);
    ptrace(PTRACE_GETREGSET, cause.thread, NT_PRSTATUS, &place);
#if defined(__aarch64__)
    registers.pc = kFaultAddress;
#else
    registers.rip = kFaultAddress;
    registers.orig_rax = ~0ULL; // no system call to go back to
#endif
    ptrace(PTRACE_SETREGSET, cause.thread, NT_PRSTATUS, &place);
    ptrace(PTRACE_DETACH, cause.thread, nullptr, nullptr);
    for (;;)
        NoteCrashProgress();
}

// Sends the waiting process each signal that could mean a second fault.
void SignallingWriter(const CCrashPlan& plan, const CCrashCause& cause)
{
    for (const int signal : kCrashSignals)
        kill(cause.process, signal);
    const timespec pause = {0, 100000000};
    nanosleep(&pause, nullptr);
    close(openat(plan.directoryFd, plan.fileName, O_CREAT, 0600));
    NoteCrashServed(cause);
}

std::atomic<bool>* g_isWriting = nullptr;

// Lets every thread of the process go on for a while.
void UnconcernedWriter(const CCrashPlan& /*plan*/, const CCrashCause& cause)
{
    *g_isWriting = true;
    const timespec pause = {0, 100000000};
    nanosleep(&pause, nullptr);
    NoteCrashServed(cause);
}

CCrashPlan PlanFor(const std::string& directory)
{
    CCrashPlan plan = {};
    plan.directoryFd =
        open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    directory.copy(plan.directory, sizeof(plan.directory) - 1);
    std::memcpy(plan.fileName, "t.mdmp", 7);
    std::memcpy(plan.application, "tool", 5);
    return plan;
}

} // namespace

TEST_F(CrashHelper, HelperThatHangsDoesNotKeepTheProcess)
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

TEST_F(CrashHelper, HelperThatFaultsLeavesTheSignalAlone)
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

TEST_F(CrashHelper, HelperThatGetsOnIsGivenItsTime)
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

TEST_F(CrashHelper, FaultInTheHandlerStillEndsInTheFirstSignal)
{
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SabotagingWriter);
            FaultIll();
        });
    // The thread sanitizer blocks every signal while a handler runs.
    const bool blocked = std::string_view(KZA_SANITIZE) == "thread";
    ExpectKilledBy(blocked ? SIGSEGV : SIGILL, status);
}

TEST_F(CrashHelper, SignalSentWhileDumpingChangesNothing)
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

TEST_F(CrashHelper, ExitOfAnotherThreadWaitsForTheSignal)
{
    const CShared<std::atomic<bool>> isWriting;
    g_isWriting = &*isWriting;
    const int status = InChild(
        [this]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), UnconcernedWriter);
            std::thread(
                []
                {
                    while (!*g_isWriting)
                        sched_yield();
                    std::exit(0);
                })
                .detach();
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
}

TEST_F(CrashHelper, WaitingForAnyChildDoesNotMeetTheHelper)
{
    const CShared<std::atomic<pid_t>> met;
    const int status = InChild(
        [this, &met]
        {
            ArmCrashSignals(PlanFor(m_dir.Path()), SignallingWriter);
            const pid_t child = fork();
            if (child == 0)
            {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                pause();
            }
            std::thread([&met] { *met = waitpid(-1, nullptr, 0); }).detach();
            FaultIll();
        });
    ExpectKilledBy(SIGILL, status);
    EXPECT_EQ(*met, 0);
}
