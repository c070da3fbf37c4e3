// SPDX-License-Identifier: Apache-2.0

#include "base/ProcessAlive.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

using KzaCore::IsProcessAlive;

TEST(ProcessAlive, ThisProcessAndTheFirstOneAre)
{
    EXPECT_TRUE(IsProcessAlive(getpid()));
    EXPECT_TRUE(IsProcessAlive(1)); // most often of another user
}

TEST(ProcessAlive, AProcessIsUntilItsParentHasWaited)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t ended = {};
    ASSERT_EQ(
        waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(IsProcessAlive(child));
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(IsProcessAlive(child));
}
