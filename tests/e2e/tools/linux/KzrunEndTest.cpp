// SPDX-License-Identifier: Apache-2.0

#include "e2e/tools/Project.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace TestSupport;

namespace
{

TEST(KzrunEnd, KilledKzrunTakesTheApplicationAlong)
{
    const CProject project(R"(
        local stat = io.open("/proc/self/stat"):read("*a")
        return { main = function()
            print(stat:match("^%d+") .. ".")
            dom:Sleep(600000)
        end })");
    CProcess kzrun(project.Words());
    ASSERT_TRUE(WaitForOut(kzrun, "."));
    const pid_t agent = PidIn(kzrun.Out());
    kzrun.Signal(SIGKILL);
    EXPECT_TRUE(WaitUntil([agent] { return !IsRunning(agent); }));
}

} // namespace
