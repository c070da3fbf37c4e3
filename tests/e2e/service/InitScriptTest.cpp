// SPDX-License-Identifier: Apache-2.0
//
// The init script, and the words of the unit, over an installation of the
// test's own, mounted where they look for it.

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

namespace fs = std::filesystem;

constexpr char kWaits[] =
    "return { init = function() require('mainloop').wait()"
    " dom:Log('message', 'runs as ' .. tostring(os.getenv('LC_CTYPE'))) end,"
    " shutdown = function() dom:Log('message', 'shut down') end }";

// Ends with the test.
constexpr char kDoesNotEnd[] =
    "return { main = function() dom:Log('message', 'runs')"
    " while true do dom:Sleep(1000) end end }";

// A service that the script finds: with kzctl beside the agent.
class CInstalled
{
public:
    explicit CInstalled(const char* module = kWaits,
                        const std::string& name = "kz_agent")
        : m_service(name)
    {
        m_service.SetModule(module);
        fs::copy(KZA_STAGE_DIR "/kzctl", m_service.Host().File("kzctl"));
        fs::create_directory(m_service.Host().File("kza_core"));
        fs::copy(KZA_STAGE_DIR "/kza_core/kza.kze",
                 m_service.Host().File("kza_core/kza.kze"));
        fs::create_directory(m_service.Host().Work());
    }

    [[nodiscard]] const CService& Service() const { return m_service; }

    // \param settings  Content of /etc/default/kz_agent, empty for no such
    //                  file.
    [[nodiscard]] CProcessResult Run(const std::string& action,
                                     const std::string& settings = {}) const
    {
        return TestSupport::Run(
            {"/bin/sh", KZA_SOURCE_DIR "/packaging/service/kz_agent.init",
             action},
            m_service.Process(Options(settings)));
    }

    // Runs a command line where the script would find the installation.
    [[nodiscard]] CProcessResult RunShell(const std::string& command) const
    {
        return TestSupport::Run({"/bin/sh", "-c", command},
                                m_service.Process(Options("")));
    }

    [[nodiscard]] bool StartUntil(const std::string& text,
                                  const std::string& settings = {}) const
    {
        return Run("start", settings).status == 0 && m_service.WaitForLog(text);
    }

    // Stops as on a host, where a process that has lost its parent is reaped.
    [[nodiscard]] CProcessResult Stop(const std::string& settings = {}) const
    {
        std::vector<std::thread> reapers;
        for (const pid_t pid : m_service.Processes())
            if (ProcessInfo(pid).parent == getpid())
                reapers.emplace_back([pid] { CService::StatusOf(pid); });
        CProcessResult result = Run("stop", settings);
        EXPECT_TRUE(m_service.WaitUntilGone());
        for (std::thread& reaper : reapers)
            reaper.join();
        return result;
    }

private:
    [[nodiscard]] CServiceOptions Options(const std::string& settings) const
    {
        CServiceOptions options;
        options.process.inChild = [this, settings]
        {
            MountTmpfs("/etc/default", "64k");
            if (!settings.empty())
                WriteFile("/etc/default/kz_agent", settings);
            MountTmpfs("/var/opt", "64k");
            fs::create_directory("/var/opt/kz_agent");
            const CHost& host = m_service.Host();
            if (mount(host.Bin().c_str(), "/opt/kz_agent", nullptr, MS_BIND,
                      nullptr) != 0 ||
                mount(host.Work().c_str(), "/var/opt/kz_agent", nullptr,
                      MS_BIND, nullptr) != 0)
                _exit(126);
            unsetenv("LC_ALL");
            unsetenv("LANG");
        };
        return options;
    }

    CService m_service;
};

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

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

// Everything that the script does about a pid file that names a process which
// is not the agent's.
void ExpectLeftAlone(const CInstalled& installed, const CProcess& stranger)
{
    const std::string pid = std::to_string(stranger.Pid());
    const std::string& pidFile = installed.Service().PidFile();
    WriteFile(pidFile, pid + "\n");
    const CProcessResult status = installed.Run("status");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(Contains(status.out, "state     stale: ")) << status.out;
    EXPECT_EQ(installed.Run("stop").status, 0);

    const CProcessResult start = installed.Run("start");
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.out, "");
    EXPECT_EQ(start.err, "/var/run/kz_agent.pid names process " + pid +
                             ", another program: kz_agent starts once that "
                             "file is removed\n");
    EXPECT_EQ(ReadFile(pidFile), pid + "\n");
    EXPECT_TRUE(IsRunning(stranger.Pid()));
}

TEST(InitScript, AStrangerInThePidFileIsLeftAlone)
{
    const CInstalled installed;
    const CProcess stranger({"/bin/sleep", "1000"});
    ExpectLeftAlone(installed, stranger);
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
