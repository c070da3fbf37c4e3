// SPDX-License-Identifier: Apache-2.0
//
// The init script, and the words of the unit, over an installation of the
// test's own, mounted where they look for it.

#include "e2e/service/Installed.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <thread>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

TEST(InitScript, StartsShowsAndStopsTheService)
{
    const CInstalled installed;
    const CService& service = installed.Service();
    CProcessResult status = installed.Run("status");
    EXPECT_EQ(status.status, 3);
    EXPECT_TRUE(Contains(status.out, "state     stopped\n")) << status.out;

    ASSERT_TRUE(installed.StartUntil("runs as C.UTF-8"));
    const pid_t watchdog = service.PidFromFile();
    status = installed.Run("status");
    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(Contains(status.out, "state     running\n")) << status.out;
    EXPECT_TRUE(
        Contains(status.out, "watchdog  " + std::to_string(watchdog) + ","))
        << status.out;

    const CProcessResult again = installed.Run("start");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "kz_agent runs already\n");
    EXPECT_EQ(service.PidFromFile(), watchdog);

    const CProcessResult stop = installed.Stop();
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(stop.out + stop.err, "");
    EXPECT_EQ(CountOf(service.Log(), "shut down"), 1);
    EXPECT_EQ(installed.Run("stop").status, 0);
    EXPECT_EQ(installed.Run("status").status, 3);
}

TEST(InitScript, RestartEndsOneServiceAndStartsAnother)
{
    const CInstalled installed;
    ASSERT_TRUE(installed.StartUntil("runs as"));
    const pid_t first = installed.Service().PidFromFile();
    std::thread reaper([first] { CService::StatusOf(first); });
    EXPECT_EQ(installed.Run("restart").status, 0);
    reaper.join();
    EXPECT_TRUE(installed.Service().WaitForLog("runs as", 2));
    EXPECT_NE(installed.Service().PidFromFile(), first);
    EXPECT_EQ(installed.Stop().status, 0);
}

TEST(InitScript, StopEndsAServiceThatIsInItsBackOff)
{
    const CInstalled installed;
    const CService& service = installed.Service();
    ASSERT_TRUE(installed.StartUntil("runs as"));
    for (int death = 1; death <= 3; ++death)
    {
        ASSERT_TRUE(service.WaitForLog("runs as", death));
        kill(service.Worker(), SIGKILL);
    }
    // Four seconds: time enough for both requests.
    ASSERT_TRUE(service.WaitForLog("Delaying 4000ms before restart 3"));
    EXPECT_TRUE(Contains(installed.Run("status").out, "state     starting: "));
    EXPECT_EQ(installed.Stop().status, 0);
    EXPECT_EQ(CountOf(service.Log(), "runs as"), 3);
}

TEST(InitScript, StopKillsWhatDoesNotEndInTime)
{
    const CInstalled installed(kDoesNotEnd);
    ASSERT_TRUE(installed.StartUntil("runs"));
    const CProcessResult stop = installed.Stop("stop_timeout=1\n");
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(stop.out, "");
    EXPECT_EQ(stop.err, "'kz_agent' was ended by force: it had 1 s to stop\n");
    EXPECT_FALSE(FileExists(installed.Service().PidFile()));
    EXPECT_EQ(installed.Run("status").status, 3);
}

TEST(InitScript, OptionsOfTheHostReachTheAgent)
{
    const CInstalled installed(
        "return { main = function() dom:Log('message', 'a is ' ..\n"
        "tostring(dom:Get('a')) .. ' in ' .. dom:Get('app.path.work')) end }");
    ASSERT_TRUE(installed.StartUntil("a is 1 in /var/opt/kz_agent",
                                     "options='--domain_var a=1'\n"));
    EXPECT_EQ(installed.Stop().status, 0);
}

// As in a container: its processes are seen from the host, and so are the names
// of their files, which are others than the host's.
TEST(InitScript, AnInstallationOfTheSamePathsElsewhereIsAnother)
{
    const CInstalled installed;
    const CInstalled other;
    ASSERT_TRUE(other.StartUntil("runs as"));
    EXPECT_EQ(installed.Run("status").status, 3);
    EXPECT_EQ(installed.Run("stop").status, 0);
    EXPECT_EQ(other.Run("status").status, 0);

    const std::string agent = other.Service().Host().Agent();
    fs::copy(agent, agent + ".new");
    fs::rename(agent + ".new", agent);
    EXPECT_EQ(installed.Run("status").status, 3);
    EXPECT_EQ(other.Stop().status, 0);
}

TEST(InitScript, StatusTellsThatThePidFileIsStale)
{
    const CInstalled installed;
    WriteFile(installed.Service().PidFile(), std::to_string(DeadPid()) + "\n");
    const CProcessResult result = installed.Run("status");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.out, "state     stale: ")) << result.out;
}

TEST(InitScript, AStrangerInThePidFileIsLeftAlone)
{
    const CInstalled installed;
    const CProcess stranger({"/bin/sleep", "1000"});
    ExpectLeftAlone(installed, stranger);
}

TEST(InitScript, AnAgentThatWasStartedByAnotherPathIsKnown)
{
    const CInstalled installed;
    ASSERT_TRUE(installed.Service().StartUntil("runs as"));
    EXPECT_EQ(installed.Run("status").status, 0);
    EXPECT_EQ(installed.Run("start").out, "kz_agent runs already\n");
    EXPECT_EQ(installed.Stop().status, 0);
}

TEST(InitScript, AnAgentWhoseProgramWasReplacedIsKnown)
{
    const CInstalled installed;
    ASSERT_TRUE(installed.StartUntil("runs as"));
    const std::string agent = installed.Service().Host().Agent();
    fs::copy(agent, agent + ".new");
    fs::rename(agent + ".new", agent);
    EXPECT_EQ(installed.Run("status").status, 0);
    EXPECT_EQ(installed.Run("stop").status, 0);
    EXPECT_EQ(installed.Run("status").status, 3);
    EXPECT_EQ(CountOf(installed.Service().Log(), "shut down"), 1);
}

TEST(InitScript, AnAgentOfAnotherNameIsKnownByIt)
{
    const CInstalled installed(kWaits, "other");
    const CService& service = installed.Service();
    const std::string settings = "name=other\n";
    ASSERT_TRUE(installed.StartUntil("runs as", settings));
    EXPECT_EQ(installed.Run("status", settings).status, 0);
    // For the service of the agent's own name it is a stranger.
    fs::copy(service.PidFile(), service.RunDir() + "/kz_agent.pid");
    EXPECT_EQ(installed.Run("status").status, 1);
    EXPECT_EQ(installed.Run("stop").status, 0);
    EXPECT_EQ(service.Processes().size(), 2U);
    EXPECT_EQ(installed.Stop(settings).status, 0);
}

// The words of the unit, as a shell reads them: of what systemd does to them,
// they need no more.
std::string WordsOfUnit(const std::string& setting)
{
    for (const std::string& line :
         ReadLines(KZA_SOURCE_DIR "/packaging/service/kz_agent.service"))
        if (line.rfind(setting + "=", 0) == 0)
            return line.substr(setting.size() + 1);
    return {};
}

TEST(Unit, StartsTheServiceAndKillsWhatDoesNotEndInTime)
{
    const CInstalled installed(kDoesNotEnd);
    const std::string settings = "options='--domain_var a=1' stop_timeout=1\n";
    EXPECT_EQ(installed.RunShell(settings + WordsOfUnit("ExecStart")).status,
              0);
    ASSERT_TRUE(installed.Service().WaitForLog("runs"));
    EXPECT_EQ(installed.Run("status").status, 0);
    const CProcessResult stop =
        installed.RunShell(settings + WordsOfUnit("ExecStop"));
    EXPECT_EQ(stop.status, 0) << stop.err;
    EXPECT_EQ(stop.out, "'kz_agent' was ended by force\n");
    EXPECT_TRUE(installed.Service().WaitUntilGone());
    EXPECT_EQ(installed.Run("status").status, 3);
}

TEST(InitScript, AnyOtherWordIsAMistake)
{
    const CInstalled installed;
    const CProcessResult result = installed.Run("reload");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "usage: ")) << result.err;
}

} // namespace
