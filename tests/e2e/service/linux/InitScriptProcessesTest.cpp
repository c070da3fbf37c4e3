// SPDX-License-Identifier: Apache-2.0
//
// What the init script can only tell where the system shows which programs
// processes run.

#include "e2e/service/Installed.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace TestSupport;

namespace
{

TEST(InitScript, OrphanIsShownAndStopped)
{
    const CInstalled installed(kDoesNotEnd);
    const CService& service = installed.Service();
    ASSERT_TRUE(installed.StartUntil("runs"));
    const pid_t watchdog = service.PidFromFile();
    kill(watchdog, SIGKILL);
    EXPECT_EQ(CService::StatusOf(watchdog), 256 + SIGKILL);
    const CProcessResult status = installed.Run("status");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(Contains(status.out, "state     orphan: ")) << status.out;

    const CProcessResult start = installed.Run("start");
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.err, "kz_agent has not ended yet: stop it first\n");
    EXPECT_EQ(service.Processes().size(), 1U);

    EXPECT_EQ(installed.Stop("stop_timeout=1\n").status, 0);
    EXPECT_EQ(installed.Run("status").status, 3);
}

TEST(InitScript, AToolOfTheSameProgramIsAStranger)
{
    const CInstalled installed;
    const CHost& host = installed.Service().Host();
    host.AddModule("tool", "return {main = function()\n"
                           "  io.write('waits') io.flush()\n"
                           "  dom:Sleep(1000000) end}");
    for (const std::vector<std::string>& name :
         {std::vector<std::string>{"--appname", "tool"}, {"-atool"}})
    {
        CProcess tool(host.Words(name));
        ASSERT_TRUE(WaitUntil([&] { return tool.Out() == "waits"; }));
        ExpectLeftAlone(installed, tool);
    }
}

} // namespace
