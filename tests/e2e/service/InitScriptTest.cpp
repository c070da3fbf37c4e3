// SPDX-License-Identifier: Apache-2.0
//
// The init script over an installation of the test's own, mounted where the
// script looks for it.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
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

// \param settings  Content of /etc/default/kz_agent, empty for no such file.
CProcessResult RunScript(const CService& service,
                         const std::string& action,
                         const std::string& settings = std::string())
{
    CServiceOptions options;
    options.process.inChild = [bin = service.Host().Bin(), settings]
    {
        MountTmpfs("/etc/default", "64k");
        if (!settings.empty())
            WriteFile("/etc/default/kz_agent", settings);
        unsetenv("LC_ALL");
        unsetenv("LANG");
        if (mount(bin.c_str(), "/opt/kz_agent", nullptr, MS_BIND, nullptr) != 0)
            _exit(126);
    };
    return Run(
        {"/bin/sh", KZA_SOURCE_DIR "/packaging/service/kz_agent.init", action},
        service.Process(options));
}

// Stops as on a host, where a process that has lost its parent is reaped.
CProcessResult StopWithScript(const CService& service,
                              const std::string& settings = std::string())
{
    const pid_t watchdog = service.PidFromFile();
    std::thread reaper([watchdog] { CService::StatusOf(watchdog); });
    CProcessResult result = RunScript(service, "stop", settings);
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
    const CProcessResult running = RunScript(service, "status");
    EXPECT_EQ(running.status, 0);
    EXPECT_EQ(running.out,
              "kz_agent runs (pid " + std::to_string(watchdog) + ")\n");

    const CProcessResult again = RunScript(service, "start");
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
    const CProcessResult result = RunScript(service, "status");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "kz_agent does not run, but its pid file is there\n");
}

// Everything that the script does about a pid file that names a process which
// is not the agent's.
void ExpectLeftAlone(const CService& service, const CProcess& stranger)
{
    const std::string pid = std::to_string(stranger.Pid());
    const std::string whose = "kz_agent does not run: /var/run/kz_agent.pid "
                              "names process " +
                              pid + ", another program\n";
    WriteFile(service.PidFile(), pid + "\n");
    const CProcessResult status = RunScript(service, "status");
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.out, whose);

    const CProcessResult stop = RunScript(service, "stop");
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(stop.err, whose);

    const CProcessResult start = RunScript(service, "start");
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.out, "");
    EXPECT_EQ(start.err, whose + "kz_agent starts once that file is removed\n");
    EXPECT_EQ(ReadFile(service.PidFile()), pid + "\n");
    EXPECT_TRUE(IsRunning(stranger.Pid()));
}

TEST(InitScript, AStrangerInThePidFileIsLeftAlone)
{
    const CService service;
    service.SetModule(kWaits);
    const CProcess stranger({"/bin/sleep", "1000"});
    ExpectLeftAlone(service, stranger);
}

TEST(InitScript, AToolOfTheSameProgramIsAStranger)
{
    const CService service;
    service.SetModule(kWaits);
    service.Host().AddModule("tool", "return {main = function()\n"
                                     "  io.write('waits') io.flush()\n"
                                     "  dom:Sleep(1000000) end}");
    for (const std::vector<std::string>& name :
         {std::vector<std::string>{"--appname", "tool"}, {"-atool"}})
    {
        CProcess tool(service.Host().Words(name));
        ASSERT_TRUE(WaitUntil([&] { return tool.Out() == "waits"; }));
        ExpectLeftAlone(service, tool);
    }
}

TEST(InitScript, AnAgentThatWasStartedByAnotherPathIsKnown)
{
    const CService service;
    service.SetModule(kWaits);
    ASSERT_TRUE(service.StartUntil("runs as"));
    EXPECT_EQ(RunScript(service, "status").status, 0);
    EXPECT_EQ(RunScript(service, "start").out, "kz_agent runs already\n");
    EXPECT_EQ(StopWithScript(service).status, 0);
    EXPECT_TRUE(service.WaitUntilGone());
}

TEST(InitScript, AnAgentWhoseProgramWasReplacedIsKnown)
{
    const CService service;
    service.SetModule(kWaits);
    ASSERT_EQ(RunScript(service, "start").status, 0);
    ASSERT_TRUE(service.WaitForLog("runs as"));
    const std::string agent = service.Host().Agent();
    std::filesystem::copy(agent, agent + ".new");
    std::filesystem::rename(agent + ".new", agent);
    EXPECT_EQ(RunScript(service, "status").status, 0);
    EXPECT_EQ(StopWithScript(service).status, 0);
    EXPECT_TRUE(service.WaitUntilGone());
}

TEST(InitScript, WhiteSpaceAroundTheNumberIsFine)
{
    const CService service;
    service.SetModule(kWaits);
    ASSERT_EQ(RunScript(service, "start").status, 0);
    ASSERT_TRUE(service.WaitForLog("runs as"));
    const std::string pid = std::to_string(service.PidFromFile());
    for (const std::string& content : {pid, "\n\t " + pid + " \r\n"})
    {
        WriteFile(service.PidFile(), content);
        EXPECT_EQ(RunScript(service, "status").out,
                  "kz_agent runs (pid " + pid + ")\n");
    }
    for (const std::string& content : {pid + " 1\n", "x" + pid, "-" + pid})
    {
        WriteFile(service.PidFile(), content);
        EXPECT_EQ(RunScript(service, "status").status, 3);
    }
    WriteFile(service.PidFile(), pid + "\n");
    EXPECT_EQ(StopWithScript(service).status, 0);
}

TEST(InitScript, AnAgentOfAnotherNameIsKnownByIt)
{
    const CService service("other");
    service.SetModule(kWaits);
    const std::string settings = "options='--appname other'\n"
                                 "pid_file=/var/run/other.pid\n";
    ASSERT_EQ(RunScript(service, "start", settings).status, 0);
    ASSERT_TRUE(service.WaitForLog("runs as"));
    EXPECT_EQ(RunScript(service, "status", settings).status, 0);
    // For the service of the agent's own name it is a stranger.
    std::filesystem::copy(service.PidFile(),
                          service.RunDir() + "/kz_agent.pid");
    EXPECT_EQ(RunScript(service, "status").status, 1);
    EXPECT_EQ(RunScript(service, "stop").status, 0);
    EXPECT_EQ(StopWithScript(service, settings).status, 0);
    EXPECT_TRUE(service.WaitUntilGone());
}

TEST(InitScript, AnyOtherWordIsAMistake)
{
    const CService service;
    EXPECT_EQ(RunScript(service, "reload").status, 2);
}

} // namespace
