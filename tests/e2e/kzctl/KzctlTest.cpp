// SPDX-License-Identifier: Apache-2.0
//
// kzctl beside a service in each of its states, as an operator calls it.

#include "e2e/kzctl/Kzctl.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

TEST(Kzctl, StoppedService)
{
    const CKzctl kzctl;
    const CProcessResult status = kzctl.Run({"status"});
    EXPECT_EQ(status.status, 3);
    EXPECT_EQ(status.out, "name      kz_agent\nstate     stopped\n");
    EXPECT_EQ(kzctl.State(), "\"stopped\"");
    ExpectSaid(kzctl.Run({"stop"}), 0, "'kz_agent' is stopped already\n", "");
    EXPECT_FALSE(fs::exists(kzctl.Service().Host().Work()))
        << "it leaves no file behind";
}

TEST(Kzctl, RunningService)
{
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    const CService& service = kzctl.Service();
    ASSERT_TRUE(service.WaitUntilDetached());
    const std::string status = kzctl.Run({"status", "--json"}).out;
    const std::regex pattern(
        R"(\{"name":"kz_agent","state":"running","watchdog":)" +
        std::to_string(service.PidFromFile()) + R"(,"worker":)" +
        std::to_string(service.Worker()) +
        R"(,"since":"[0-9]{4}-[0-9][0-9]-[0-9][0-9]T[0-9:]{8}[+-][0-9:]{5}",)"
        R"("restarts":0,"next_start_ms":null,"rss_kib":\{"watchdog":[0-9]+,)"
        R"("worker":[0-9]+\},"cpu_s":\{"watchdog":[0-9.]+,"worker":[0-9.]+\},)"
        R"("version":"12\.0\.0\.2932","last_error":null,"last_dump":null,)"
        R"("pending_packages":\[\]\}\n)");
    EXPECT_TRUE(std::regex_match(status, pattern)) << status;
    const std::string pid = std::to_string(service.PidFromFile());
    ExpectSaid(kzctl.Run({"start"}), 0,
               "'kz_agent' is running already (" + pid + ")\n", "");
    ExpectSaid(kzctl.Run({"stop"}), 0, "'kz_agent' is stopped\n", "");
    EXPECT_TRUE(service.Processes().empty());
}

TEST(Kzctl, ServiceInItsBackOff)
{
    const CKzctl kzctl("return { main = function() return 3 end }");
    const CService& service = kzctl.Service();
    ASSERT_TRUE(service.StartUntil("Delaying 4000ms"));
    const CProcessResult status = kzctl.Run({"status", "--json"});
    EXPECT_EQ(status.status, 0);
    std::smatch found;
    ASSERT_TRUE(
        std::regex_search(status.out, found,
                          std::regex("\"state\":\"starting\",.*\"restarts\":2,"
                                     "\"next_start_ms\":([0-9]+),")))
        << status.out;
    EXPECT_LE(std::atoi(found[1].str().c_str()), 4000);
    // It is asked twice, as it has to be.
    ExpectSaid(kzctl.Run({"stop"}), 0, "'kz_agent' is stopped\n", "");
    EXPECT_TRUE(service.Processes().empty());
}

TEST(Kzctl, ServiceThatStops)
{
    const CKzctl kzctl("return { main = function()\n"
                       "  dom:Log('message', 'main runs')\n"
                       "  while not dom:Get('go') do dom:Wait('go', 10) end\n"
                       "end }");
    const CService& service = kzctl.Service();
    ASSERT_TRUE(kzctl.Start());
    const CProcessResult stop = kzctl.Run({"stop", "--timeout", "0.5"});
    EXPECT_EQ(stop.status, 1);
    EXPECT_TRUE(std::regex_match(
        stop.err, std::regex("kzctl: 'kz_agent' has not stopped: 'main' has "
                             "not returned since it was asked, [-0-9: ]+\n")))
        << stop.err;
    EXPECT_EQ(kzctl.State(), "\"stopping\"");
    EXPECT_EQ(kzctl.Run({"status"}).status, 0);
    const CProcessResult start = kzctl.Run({"start"});
    EXPECT_EQ(start.status, 1);
    EXPECT_NE(start.err.find("has not ended yet"), std::string::npos);
    ExpectSaid(kzctl.Run({"stop", "--timeout", "0.2", "--kill"}), 0,
               "'kz_agent' was ended by force\n", "");
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_EQ(kzctl.State(), "\"stopped\"");
}

TEST(Kzctl, StalePidFile)
{
    const CKzctl kzctl;
    WriteFile(kzctl.Service().PidFile(), std::to_string(DeadPid()) + "\n");
    EXPECT_EQ(kzctl.Run({"status"}).status, 1);
    EXPECT_EQ(kzctl.State(), "\"stale\"");
    // Of a process id that went to another program, likewise.
    WriteFile(kzctl.Service().PidFile(), std::to_string(getpid()) + "\n");
    EXPECT_EQ(kzctl.State(), "\"stale\"");
    ExpectSaid(kzctl.Run({"stop"}), 0, "'kz_agent' is stopped already\n", "");
}

TEST(Kzctl, UnusablePidFile)
{
    const CKzctl kzctl;
    fs::create_directory(kzctl.Service().PidFile());
    EXPECT_EQ(kzctl.State(), "\"stopped\"");
}

TEST(Kzctl, StartWaitsUntilItIsUp)
{
    const CKzctl kzctl;
    ExpectSaid(kzctl.Run({"start"}), 0, "'kz_agent' is up\n", "");
    EXPECT_EQ(kzctl.State(), "\"running\"");
    const pid_t first = kzctl.Service().PidFromFile();
    ExpectSaid(kzctl.Run({"restart"}), 0,
               "'kz_agent' is stopped\n'kz_agent' is up\n", "");
    EXPECT_NE(kzctl.Service().PidFromFile(), first);
    EXPECT_EQ(kzctl.Run({"stop"}).status, 0);
}

TEST(Kzctl, StartSaysWhyItFailed)
{
    const CKzctl kzctl("return { init = function() error('no disk') end }");
    const CProcessResult start = kzctl.Run({"start"});
    EXPECT_EQ(start.status, 1);
    EXPECT_EQ(start.err.rfind("kzctl: 'kz_agent' did not start: ", 0), 0U)
        << start.err;
    EXPECT_NE(start.err.find("no disk\n"), std::string::npos) << start.err;
    EXPECT_EQ(std::count(start.err.begin(), start.err.end(), '\n'), 1)
        << start.err;
}

TEST(Kzctl, StartTakesOptionsOfTheAgent)
{
    const CKzctl kzctl;
    EXPECT_EQ(kzctl
                  .Run({"start", "--timeout", "60", "--", "--domain_var",
                        "control.socket=1"})
                  .status,
              0);
    ExpectSaid(kzctl.Run({"get", "control.socket"}), 0, "1\n", "");
    EXPECT_EQ(kzctl.Run({"stop"}).status, 0);
}

TEST(Kzctl, DomainOfTheRunningAgent)
{
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    ExpectSaid(kzctl.Run({"get", "app.name"}), 0, "kz_agent\n", "");
    ExpectSaid(kzctl.Run({"get", "none"}), 1, "", "kzctl: 'none' is not set\n");
    ExpectSaid(kzctl.Run({"get", "none", "--json"}), 1,
               "{\"key\":\"none\",\"type\":\"nil\",\"value\":null}\n", "");
    ExpectSaid(kzctl.Run({"set", "a.text", "two words"}), 0, "", "");
    ExpectSaid(kzctl.Run({"set", "--int", "a.number", "-9007199254740993"}), 0,
               "", "");
    ExpectSaid(kzctl.Run({"set", "--bool", "a.switch", "true"}), 0, "", "");
    ExpectSaid(kzctl.Run({"keys", "a."}), 0, "a.number\na.switch\na.text\n",
               "");
    ExpectSaid(kzctl.Run({"keys", "a.", "--json"}), 0,
               "{\"key\":\"a.number\",\"type\":\"number\",\"value\":"
               "-9007199254740993}\n"
               "{\"key\":\"a.switch\",\"type\":\"boolean\",\"value\":true}\n"
               "{\"key\":\"a.text\",\"type\":\"string\",\"value\":\"two "
               "words\"}\n",
               "");
    ExpectSaid(kzctl.Run({"unset", "a.text"}), 0, "", "");
    EXPECT_EQ(kzctl.Run({"get", "a.text"}).status, 1);
    ExpectSaid(kzctl.Run({"set", "--int", "a.number", "x"}), 1, "",
               "kzctl: 'x' is no integer\n");
    ExpectSaid(kzctl.Run({"heartbeat"}), 0, "", "");
    ExpectSaid(kzctl.Run({"get", "kza.HeartbeatNow"}), 0, "true\n", "");
    EXPECT_EQ(kzctl.Member({"version", "--json"}, "agent"), "\"12.0.0.2932\"");
    EXPECT_TRUE(kzctl.Service().Stop());
}

TEST(Kzctl, TraceOfTheRunningAgent)
{
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    ExpectSaid(kzctl.Run({"trace", "+Mine"}), 0,
               "app.trace  Mine\napp.trace+ Appl, Cmd, Srvc, "
               "kza.Heartbeat, kza.ListenThread, kza.PluginUtils\n",
               "");
    ExpectSaid(kzctl.Run({"trace", "-Cmd", "--json"}), 0,
               "{\"app.trace\":[\"Mine\"],\"app.trace+\":[\"Appl\","
               "\"Srvc\",\"kza.Heartbeat\",\"kza.ListenThread\","
               "\"kza.PluginUtils\"]}\n",
               "");
    EXPECT_EQ(kzctl.Run({"trace", "+*"}).status, 0);
    ExpectSaid(kzctl.Run({"trace", "-Mine"}), 1, "",
               "kzctl: all components are traced ('*'): 'Mine' alone "
               "cannot be taken out\n");
    EXPECT_TRUE(kzctl.Service().Stop());
}

TEST(Kzctl, WatchEndsWithTheAgentAndOnCtrlC)
{
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    CProcess watch(kzctl.CommandLine({"watch", "k"}),
                   kzctl.Service().Process());
    ASSERT_TRUE(WaitUntil([&] { return watch.Out() == "(not set)\n"; }));
    EXPECT_EQ(kzctl.Run({"set", "k", "v"}).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return watch.Out() == "(not set)\nv\n"; }));

    CProcess other(kzctl.CommandLine({"watch", "k", "--json"}),
                   kzctl.Service().Process());
    ASSERT_TRUE(WaitUntil([&] { return !other.Out().empty(); }));
    other.Signal(SIGTERM); // the script tells the tool as Ctrl-C would
    EXPECT_EQ(other.Wait().status, 0);

    EXPECT_TRUE(kzctl.Service().Stop());
    const CProcessResult end = watch.Wait();
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "kzctl: the agent has gone\n");
}

TEST(Kzctl, WithoutASocketItSaysWhatIsMissing)
{
    const CKzctl kzctl;
    ExpectSaid(kzctl.Run({"get", "k"}), 1, "",
               "kzctl: no answer at '" + kzctl.Service().Host().Work() +
                   "/run/kz_agent.sock': No such file or directory (it is "
                   "there while 'kz_agent' runs with the setting "
                   "control.socket)\n");
}

TEST(Kzctl, LogAndEvents)
{
    const CKzctl kzctl("return { main = function()\n"
                       "  dom:AgentEventWrite{text='e1', number=7, "
                       "severity=2}\n"
                       "  dom:Log('error', 'first')\n"
                       "  dom:Log('message', 'main runs')\n"
                       "end }");
    const CService& service = kzctl.Service();
    EXPECT_EQ(kzctl.Run({"log"}).status, 1) << "there is no log yet";
    ExpectSaid(kzctl.Run({"events"}), 0, "", "");
    ASSERT_TRUE(kzctl.Start());
    EXPECT_EQ(kzctl.Member({"log", "--level", "error", "--json"}, "text"),
              "\"first\"");
    EXPECT_EQ(kzctl.Member({"status", "--json"}, "last_error").find("first"),
              kzctl.Member({"status", "--json"}, "last_error").size() - 6);
    EXPECT_EQ(kzctl.Member({"events", "--json"}, "text"), "\"e1\"");
    EXPECT_EQ(kzctl.Run({"events", "--after", "1"}).out, "");
    EXPECT_EQ(kzctl.Run({"log", "-n", "0"}).out, "");

    CProcess follow(kzctl.CommandLine({"log", "-f", "-n", "1"}),
                    service.Process());
    ASSERT_TRUE(WaitUntil([&] { return !follow.Out().empty(); }));
    kill(service.PidFromFile(), SIGTERM);
    EXPECT_TRUE(WaitUntil(
        [&]
        { return follow.Out().find("Run time was") != std::string::npos; }));
    follow.Signal(SIGTERM);
    EXPECT_EQ(follow.Wait().status, 0);
}

TEST(Kzctl, WrongUsageIsStatusTwoAndOneLine)
{
    const CKzctl kzctl;
    for (const Words& words :
         {Words{}, Words{"fly"}, Words{"get"}, Words{"get", "a", "b"},
          Words{"log", "-n", "x"}, Words{"log", "--level", "loud"},
          Words{"log", "--since", "yesterday"}, Words{"status", "--fast"},
          Words{"stop", "--timeout", "soon"}, Words{"help", "fly"}})
    {
        ExpectComplaint(kzctl.Run(words), 2);
    }
}

// The commands that the help lists.
std::vector<std::string> CommandsIn(const std::string& help)
{
    const std::string title = "\nCommands:\n";
    const std::regex name("   ([a-z]+)\\b.*");
    std::istringstream lines(help.substr(help.find(title) + title.size()));
    std::vector<std::string> commands;
    std::smatch found;
    for (std::string line;
         std::getline(lines, line) && std::regex_match(line, found, name);)
        commands.push_back(found[1].str());
    return commands;
}

TEST(Kzctl, EachCommandHasHelpOf80Columns)
{
    const CKzctl kzctl;
    const std::string all = kzctl.Run({"help"}).out;
    EXPECT_EQ(CommandsIn(all),
              (Words{"status", "start",    "stop",      "restart", "log",
                     "events", "packages", "install",   "remove",  "check",
                     "dumps",  "get",      "set",       "unset",   "keys",
                     "watch",  "trace",    "heartbeat", "version", "help"}));
    for (const std::string& name : CommandsIn(all))
    {
        if (name == "help")
            continue;
        SCOPED_TRACE(name);
        const CProcessResult help = kzctl.Run({"help", name});
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.out.rfind("NAME\n    kzctl " + name + " - ", 0), 0U)
            << help.out;
        for (const std::string& section :
             {"\n\nSYNOPSIS\n    kzctl " + name,
              std::string("\n\nDESCRIPTION\n    "),
              std::string("\n\nEXIT STATUS\n    0  ")})
            EXPECT_NE(help.out.find(section), std::string::npos) << help.out;
        EXPECT_EQ(kzctl.Run({name, "--help"}).out, help.out);
        std::istringstream lines(all + help.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST(Kzctl, WhatStartAndStopBringAboutIsJsonToo)
{
    const CKzctl kzctl;
    const std::string running =
        "{\"name\":\"kz_agent\",\"state\":\"running\"}\n";
    const std::string stopped =
        "{\"name\":\"kz_agent\",\"state\":\"stopped\"}\n";
    ExpectSaid(kzctl.Run({"start", "--json"}), 0, running, "");
    ExpectSaid(kzctl.Run({"--json", "start"}), 0, running, "");
    ExpectSaid(kzctl.Run({"restart", "--json"}), 0, stopped + running, "");
    ExpectSaid(kzctl.Run({"stop", "--json"}), 0, stopped, "");
    ExpectSaid(kzctl.Run({"stop", "--json"}), 0, stopped, "");
}

TEST(Kzctl, RestartKeepsTheOptions)
{
    const CKzctl kzctl;
    ASSERT_EQ(kzctl
                  .Run({"start", "--", "-dcontrol.socket=1", "--zippath",
                        "a b.kze", "--", "--own"})
                  .status,
              0);
    ASSERT_EQ(kzctl.Run({"restart"}).status, 0);
    ExpectSaid(kzctl.Run({"get", "control.socket"}), 0, "1\n", "");
    const std::string words = ReadFile(
        "/proc/" + std::to_string(kzctl.Service().PidFromFile()) + "/cmdline");
    constexpr char kKept[] = "--domain_var\0control.socket=1\0"
                             "--zippath\0a b.kze\0--\0--own\0";
    EXPECT_NE(words.find(std::string(kKept, sizeof kKept - 1)),
              std::string::npos)
        << words;
    ASSERT_EQ(kzctl.Run({"restart", "--", "--zippath", "none.kze"}).status, 0);
    EXPECT_EQ(kzctl.Run({"get", "control.socket"}).status, 1);
    EXPECT_EQ(kzctl.Run({"stop"}).status, 0);
}

} // namespace
