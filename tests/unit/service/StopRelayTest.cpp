// SPDX-License-Identifier: Apache-2.0
//
// The watchdog's signals, each case in a process of its own.

#include "service/StopRelay.h"

#include "base/SignalSet.h"

#include "support/InChild.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>

#include <unistd.h>

using namespace TestSupport;

namespace
{

constexpr int kIgnored[] = {SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2, SIGALRM};

struct sigaction ActionOf(int signal)
{
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action;
}

bool IsBlocked(int signal)
{
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

bool IsPending(int signal)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

// The test runner may have been started with some of them blocked or ignored.
void SetDefaults()
{
    const sigset_t none = KzaCore::SignalSet({});
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : kIgnored)
        (void)signal(number, SIG_DFL);
    (void)signal(SIGINT, SIG_DFL);
}

// The handler tells apart who sent a signal: this one comes from outside.
void SignalFromAnotherProcess(int signal)
{
    const pid_t target = getpid();
    EXPECT_EQ(InChild([&] { kill(target, signal); }), 0);
}

void OtherHandler(int /*signal*/)
{
}

TEST(StopRelay, SigtermAndSigintGoToTheRelay)
{
    const int status = InChild(
        []
        {
            SetDefaults();
            CStopRelay relay;
            relay.Install("/no/such/file");
            EXPECT_EQ(_my_pid, getpid());
            EXPECT_EQ(_the_pid_file, "/no/such/file");
            for (const int signal : {SIGTERM, SIGINT})
            {
                SCOPED_TRACE(signal);
                const struct sigaction action = ActionOf(signal);
                EXPECT_EQ(action.sa_sigaction, pass_signal);
                EXPECT_NE(action.sa_flags & SA_SIGINFO, 0);
                EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
                EXPECT_EQ(action.sa_flags & SA_NODEFER, 0);
            }
        });
    EXPECT_EQ(status, 0);
}

TEST(StopRelay, ItsOwnBroadcastIsNoRequest)
{
    const int status = InChild(
        []
        {
            SetDefaults();
            setpgid(0, 0);
            CStopRelay relay;
            relay.Install("/no/such/file");
            const CStopRelay::CDelivery delivery(relay);
            for (int i = 0; i < 5; ++i)
                kill(getpid(), SIGTERM); // a second request would end it
            _exit(7);
        });
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(StopRelay, OtherSignalsDoNotEndTheWatchdog)
{
    const int status = InChild(
        []
        {
            SetDefaults();
            CStopRelay relay;
            relay.Install("/no/such/file");
            const CStopRelay::CDelivery delivery(relay);
            for (const int signal : kIgnored)
                kill(getpid(), signal);
            _exit(7);
        });
    EXPECT_EQ(WEXITSTATUS(status), 7) << "killed by " << WTERMSIG(status);
}

TEST(StopRelay, RequestsWaitForADelivery)
{
    const CTempDir dir;
    const std::string pidFile = dir.File("pid");
    for (const int signal : {SIGTERM, SIGINT})
    {
        SCOPED_TRACE(signal);
        WriteFile(pidFile, "1\n");
        const int status = InChild(
            [&]
            {
                SetDefaults();
                setpgid(0, 0);
                CStopRelay relay;
                relay.Install(pidFile);
                SignalFromAnotherProcess(signal);
                EXPECT_TRUE(IsPending(signal));
                EXPECT_TRUE(FileExists(pidFile));
                {
                    const CStopRelay::CDelivery delivery(relay);
                }
                EXPECT_FALSE(IsPending(signal));
                EXPECT_FALSE(FileExists(pidFile));
                SignalFromAnotherProcess(signal);
                EXPECT_TRUE(IsPending(signal));
            });
        EXPECT_EQ(status, 0);
    }
}

void RelayUntilItEndsInHandler()
{
    SetDefaults();
    setpgid(0, 0);
    CStopRelay relay;
    relay.Install("/no/such/file");
    // Each is sent while it is blocked. Delivered at once, it could interrupt
    // the test's own fork(), whose lock exit() needs.
    for (const int signal : {SIGINT, SIGTERM})
    {
        SignalFromAnotherProcess(signal);
        const CStopRelay::CDelivery delivery(relay);
    }
    _exit(7);
}

TEST(StopRelay, SecondRequestOfEitherKindEndsTheWatchdogWithZero)
{
    EXPECT_EQ(InChild(RelayUntilItEndsInHandler), 0);
}

TEST(StopRelay, LaterWorkerGetsItsSignalsBackAsTheDaemonHadThem)
{
    const int status = InChild(
        []
        {
            SetDefaults();
            (void)signal(SIGHUP, SIG_IGN);
            (void)signal(SIGUSR1, OtherHandler);
            const sigset_t blocked = KzaCore::SignalSet({SIGALRM});
            sigprocmask(SIG_SETMASK, &blocked, nullptr);

            CStopRelay relay;
            relay.Install("/no/such/file");
            relay.Install("/no/such/file");
            relay.LeaveToWorker();
            for (const int signal : {SIGINT, SIGPIPE, SIGUSR2, SIGALRM})
                EXPECT_EQ(ActionOf(signal).sa_handler, SIG_DFL) << signal;
            EXPECT_EQ(ActionOf(SIGHUP).sa_handler, SIG_IGN);
            EXPECT_EQ(ActionOf(SIGUSR1).sa_handler, OtherHandler);
            for (int signal = 1; signal < SIGRTMIN; ++signal)
                EXPECT_EQ(IsBlocked(signal), signal == SIGALRM ||
                                                 signal == SIGTERM ||
                                                 signal == SIGCHLD)
                    << signal;
            EXPECT_EQ(ActionOf(SIGTERM).sa_sigaction, pass_signal);
        });
    EXPECT_EQ(status, 0);
}

TEST(StopRelay, FirstWorkerKeepsTheDaemonsSignals)
{
    const int status = InChild(
        []
        {
            SetDefaults();
            const CStopRelay relay;
            relay.LeaveToWorker();
            for (int signal = 1; signal < SIGRTMIN; ++signal)
                EXPECT_EQ(IsBlocked(signal), signal == SIGTERM) << signal;
            for (const int signal : kIgnored)
                EXPECT_EQ(ActionOf(signal).sa_handler, SIG_DFL) << signal;
        });
    EXPECT_EQ(status, 0);
}

} // namespace
