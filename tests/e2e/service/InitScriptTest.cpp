// SPDX-License-Identifier: Apache-2.0
//
// The init script over an installation of the test's own, mounted where the
// script looks for it.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

using namespace TestSupport;

namespace
{

constexpr char kWaits[] =
    "return { init = function() require('mainloop').wait()"
    " dom:Log('message', 'runs as ' .. tostring(os.getenv('LC_CTYPE'))) end,"
    " shutdown = function() dom:Log('message', 'shut down') end }";

SProcessResult RunScript(const CService& service, const std::string& action)
{
    SServiceOptions options;
    options.process.inChild = [bin = service.Host().Bin()]
    {
        unsetenv("LC_ALL");
        unsetenv("LANG");
        if (mount(bin.c_str(), "/opt/kz_agent", nullptr, MS_BIND, nullptr) != 0)
            _exit(126);
    };
    return Run(
        {"/bin/sh", KZA_SOURCE_DIR "/packaging/service/kz_agent.init", action},
        service.Process(options));
}

// Stops as on a host, where whoever has lost its parent is reaped.
SProcessResult StopWithScript(const CService& service)
{
    const pid_t watchdog = service.PidFromFile();
    std::thread reaper([watchdog] { CService::StatusOf(watchdog); });
    SProcessResult result = RunScript(service, "stop");
    reaper.join();
    return result;
}

TEST(InitScript, StartsShowsAndStopsTheService)
{
    const CService service;
    service.SetModule(kWaits);
    EXPECT_EQ(RunScript(service, "status").out, "kz_agent is stopped\n");
    EXPECT_EQ(RunScript(service, "status").status, 3);

    ASSERT_EQ(RunScript(service, "start").status, 0);
    ASSERT_TRUE(service.WaitForLog("runs as C.UTF-8"));
    const pid_t watchdog = service.PidFromFile();
    const SProcessResult running = RunScript(service, "status");
    EXPECT_EQ(running.status, 0);
    EXPECT_EQ(running.out,
              "kz_agent runs (pid " + std::to_string(watchdog) + ")\n");

    const SProcessResult again = RunScript(service, "start");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "kz_agent runs already\n");
    EXPECT_EQ(service.PidFromFile(), watchdog);

    EXPECT_EQ(StopWithScript(service).status, 0);
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_EQ(CountOf(service.Log(), "shut down"), 1);
    EXPECT_EQ(RunScript(service, "stop").status, 0);
    EXPECT_EQ(RunScript(service, "status").status, 3);
}

TEST(InitScript, StopEndsAServiceThatIsInItsBackOff)
{
    const CService service;
    service.SetModule(kWaits);
    ASSERT_EQ(RunScript(service, "start").status, 0);
    for (int death = 1; death <= 3; ++death)
    {
        ASSERT_TRUE(service.WaitForLog("runs as", death));
        kill(service.Worker(), SIGKILL);
    }
    // Four seconds: time enough for both requests.
    ASSERT_TRUE(service.WaitForLog("Delaying 4000ms before restart 3"));
    EXPECT_EQ(StopWithScript(service).status, 0);
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_EQ(CountOf(service.Log(), "runs as"), 3);
}

TEST(InitScript, StatusTellsThatThePidFileIsStale)
{
    const CService service;
    WriteFile(service.PidFile(), std::to_string(DeadPid()) + "\n");
    const SProcessResult result = RunScript(service, "status");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "kz_agent does not run, but its pid file is there\n");
}

TEST(InitScript, AnyOtherWordIsAMistake)
{
    const CService service;
    EXPECT_EQ(RunScript(service, "reload").status, 2);
}

} // namespace
