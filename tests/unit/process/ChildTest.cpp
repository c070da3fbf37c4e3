// SPDX-License-Identifier: Apache-2.0

#include "process/Child.h"

#include "base/SignalSet.h"

#include "support/InChild.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

int StatusOf(pid_t child)
{
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST(Child, ProgramRunsWithItsWords)
{
    const pid_t child = StartChild({"/bin/sh", "-c", "exit $1", "sh", "7"});
    ASSERT_GT(child, 0);
    EXPECT_EQ(WEXITSTATUS(StatusOf(child)), 7);
}

TEST(Child, ProgramThatIsNotThereIsToldByErrno)
{
    EXPECT_EQ(StartChild({"/nowhere/program"}), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Child, ProgramSharesTheProcessGroup)
{
    const pid_t child = StartChild({"/bin/sleep", "60"});
    ASSERT_GT(child, 0);
    EXPECT_EQ(getpgid(child), getpgrp());
    kill(child, SIGKILL);
    StatusOf(child);
}

TEST(Child, ProgramHasACleanSignalState)
{
    const int status = InChild(
        []
        {
            const sigset_t blocked = SignalSet({SIGTERM, SIGINT});
            sigprocmask(SIG_BLOCK, &blocked, nullptr);
            signal(SIGHUP, SIG_IGN);
            for (const char* name : {"TERM", "INT", "HUP"})
            {
                const pid_t child = StartChild(
                    {"/bin/sh", "-c", std::string("kill -") + name + " $$"});
                EXPECT_TRUE(WIFSIGNALED(StatusOf(child))) << name;
            }
        });
    EXPECT_EQ(status, 0);
}

} // namespace
