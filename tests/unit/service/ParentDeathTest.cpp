// SPDX-License-Identifier: Apache-2.0

#include "service/ParentDeath.h"

#include "base/SignalSet.h"

#include "support/InChild.h"
#include "support/Process.h"

#include <gtest/gtest.h>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

// Takes SIGTERM as the script thread does, and says so at the other end of a
// pipe. An alarm ends a process that gets no signal.
[[noreturn]] void WaitForStop(int pipe)
{
    const sigset_t stop = KzaCore::SignalSet({SIGTERM});
    alarm(30);
    int signal = 0;
    sigwait(&stop, &signal);
    const bool said = signal == SIGTERM && write(pipe, "s", 1) == 1;
    _exit(said ? 0 : 1);
}

void BlockStop()
{
    const sigset_t stop = KzaCore::SignalSet({SIGTERM});
    sigprocmask(SIG_BLOCK, &stop, nullptr);
}

// What the grandchild writes once it was told to stop, empty when it ends
// otherwise. Its parent ends before or after it has asked for the signal.
std::string SaidByGrandchild(bool parentEndsFirst)
{
    int said[2];
    int asked[2];
    EXPECT_EQ(pipe2(said, O_CLOEXEC) | pipe2(asked, O_CLOEXEC), 0);
    const int status = InChild(
        [&]
        {
            BlockStop();
            const pid_t parent = getpid();
            if (fork() == 0)
            {
                if (parentEndsFirst)
                    WaitUntil([&] { return getppid() != parent; });
                StopWithParent(parent);
                EXPECT_EQ(write(asked[1], "a", 1), 1);
                WaitForStop(said[1]);
            }
            char byte = 0;
            if (!parentEndsFirst)
            {
                EXPECT_EQ(read(asked[0], &byte, 1), 1);
            }
        });
    EXPECT_EQ(status, 0);
    close(said[1]);
    close(asked[0]);
    close(asked[1]);
    char text[2] = {};
    const ssize_t length = read(said[0], text, sizeof text);
    close(said[0]);
    return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

TEST(ParentDeath, ChildIsToldToStopWhenItsParentEnds)
{
    EXPECT_EQ(SaidByGrandchild(false), "s");
}

TEST(ParentDeath, ChildWhoseParentIsGoneAlreadyIsToldAtOnce)
{
    EXPECT_EQ(SaidByGrandchild(true), "s");
}

} // namespace
