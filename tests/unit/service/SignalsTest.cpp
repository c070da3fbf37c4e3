// SPDX-License-Identifier: Apache-2.0

#include "service/Signals.h"

#include "AgentApp.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

// Runs a step in a child and tells how the child ended.
int WaitStatusOf(const std::function<void()>& step)
{
    const pid_t child = fork();
    if (child == 0)
    {
        step();
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

bool IsInstalled(int signal, void (*handler)(int), int flags)
{
    struct sigaction action
    {
    };
    sigaction(signal, nullptr, &action);
    // A mask means nothing to a signal that is ignored.
    bool maskIsEmpty = true;
    for (int other = 1; handler != SIG_IGN && other <= SIGRTMAX; ++other)
        maskIsEmpty = maskIsEmpty && sigismember(&action.sa_mask, other) != 1;
    // The C library adds a flag of its own.
    constexpr int kOurs =
        SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_RESETHAND | SA_ONSTACK;
    return action.sa_handler == handler && (action.sa_flags & kOurs) == flags &&
           maskIsEmpty;
}

TEST(Signals, HandlerEndsTheProcessOnSigintAndSigtermOnly)
{
    for (const int signal : {SIGINT, SIGTERM})
        EXPECT_EQ(WaitStatusOf([&] { KzaSignalHandler(signal); }), 0);
    for (const int signal :
         {SIGUSR1, SIGUSR2, SIGALRM, KzaCore::CRunnable::SigThreadDelete})
        EXPECT_EQ(WaitStatusOf([&] { KzaSignalHandler(signal); }), 99 << 8);
}

TEST(Signals, HandlerRunsNoExitHandlers)
{
    EXPECT_EQ(WaitStatusOf(
                  []
                  {
                      atexit([] { _exit(5); });
                      KzaSignalHandler(SIGTERM);
                  }),
              0);
}

TEST(Signals, DispositionsAreThoseOfTheTable)
{
    const struct
    {
        void (*handler)(int);
        int signal;
        int flags;
    } table[] = {
        {KzaSignalHandler, SIGINT, SA_RESTART},
        {KzaSignalHandler, SIGTERM, SA_RESTART},
        {KzaSignalHandler, SIGUSR1, SA_RESTART},
        {KzaSignalHandler, SIGUSR2, SA_RESTART},
        {KzaSignalHandler, KzaCore::CRunnable::SigThreadDelete, 0},
        {SIG_IGN, SIGHUP, SA_RESTART},
        {KzaSignalHandler, SIGALRM, 0},
        {SIG_IGN, SIGPIPE, SA_RESTART},
    };
    const int status = WaitStatusOf(
        [&]
        {
            InstallSignalDispositions();
            for (const auto& row : table)
                if (!IsInstalled(row.signal, row.handler, row.flags))
                    _exit(row.signal);
            _exit(0);
        });
    EXPECT_EQ(WEXITSTATUS(status), 0) << "number of the wrong signal";
}

TEST(Signals, OnlySigintAndSigtermAreBlocked)
{
    const int status = WaitStatusOf(
        []
        {
            sigset_t mask;
            sigemptyset(&mask);
            sigprocmask(SIG_SETMASK, &mask, nullptr);
            InstallSignalDispositions();
            sigprocmask(SIG_SETMASK, nullptr, &mask);
            for (int signal = 1; signal < SIGRTMIN; ++signal)
                if ((sigismember(&mask, signal) == 1) !=
                    (signal == SIGINT || signal == SIGTERM))
                    _exit(signal);
            _exit(0);
        });
    EXPECT_EQ(WEXITSTATUS(status), 0) << "number of the wrong signal";
}

TEST(Signals, WriteBeyondTheFileSizeLimitFailsAndKillsNothing)
{
    const TestSupport::CTempDir dir;
    const int status = WaitStatusOf(
        [&]
        {
            const rlimit limit{4, 4};
            setrlimit(RLIMIT_FSIZE, &limit);
            IgnoreFileSizeSignal();
            const int file =
                open(dir.File("file").c_str(), O_WRONLY | O_CREAT, 0600);
            const bool full = write(file, "12345678", 8) == 4;
            const bool fails = write(file, "5", 1) == -1 && errno == EFBIG;
            _exit(full && fails ? 0 : 1);
        });
    EXPECT_EQ(status, 0);
}

TEST(ExitReport, RunTimeHasDaysHoursMinutesSecondsAndMilliseconds)
{
    const struct
    {
        long long milliseconds;
        const char* text;
    } cases[] = {
        {0, "0d 00:00:00.000"},
        {5, "0d 00:00:00.005"},
        {59999, "0d 00:00:59.999"},
        {90061500, "1d 01:01:01.500"},
        {93784005, "1d 02:03:04.005"},
        {1000LL * 86400 * 1000, "1000d 00:00:00.000"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(CAgentApp::RunTimeText(
                      wxTimeSpan(0, 0, 0, wxLongLong(test.milliseconds))),
                  test.text);
}

} // namespace
