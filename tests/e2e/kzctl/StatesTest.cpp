// SPDX-License-Identifier: Apache-2.0
//
// kzctl when something is wrong: one clear line and a status, never a
// traceback.

#include "e2e/kzctl/Kzctl.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// Goes on whatever it is asked for.
constexpr char kDeafMain[] = "return { main = function()"
                             "  require('mainloop').wait()"
                             "  dom:Log('message', 'main runs')"
                             "  while true do dom:Sleep(20) end"
                             " end }";

std::string Record(int number, const std::string& text = "record")
{
    return "2026-11-21 02:04:00 [4711:4712] INFO kza: " + text + " " +
           std::to_string(number) + "\n";
}

std::string Records(int first, int last)
{
    std::string all;
    for (int number = first; number <= last; ++number)
        all += Record(number);
    return all;
}

void Append(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::app) << text;
}

// --- Of the service --------------------------------------------------------

TEST(KzctlStates, AnOrphanIsToldRefusedAndEndedByForce)
{
    const CKzctl kzctl(kDeafMain);
    ASSERT_TRUE(kzctl.Start());
    const CService& service = kzctl.Service();
    ASSERT_TRUE(service.WaitUntilDetached());
    const std::string worker = std::to_string(service.Worker());
    const pid_t watchdog = service.PidFromFile();
    kill(watchdog, SIGKILL);
    ASSERT_EQ(CService::StatusOf(watchdog), 256 + SIGKILL);

    EXPECT_EQ(kzctl.Run({"status"}).status, 1);
    EXPECT_EQ(kzctl.State(), "\"orphan\"");
    EXPECT_EQ(kzctl.Member({"status", "--json"}, "worker"), worker);
    EXPECT_EQ(kzctl.Member({"status", "--json"}, "watchdog"), "null");
    ExpectSaid(kzctl.Run({"start"}), 1, "",
               "kzctl: a worker of 'kz_agent' runs without its watchdog (" +
                   worker + "): stop it first\n");
    ExpectComplaint(kzctl.Run({"stop", "--timeout", "0.3"}), 1);
    ExpectSaid(kzctl.Run({"stop", "--timeout", "0.3", "--kill"}), 0,
               "'kz_agent' was ended by force\n", "");
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_FALSE(fs::exists(service.PidFile()));
    EXPECT_EQ(kzctl.State(), "\"stopped\"");
}

TEST(KzctlStates, AServiceThatGaveUpIsStoppedAndSaysWhy)
{
    const CKzctl kzctl("return { main = function() return 3 end }");
    CServiceOptions options;
    options.speed = 1000;
    ASSERT_TRUE(
        kzctl.Service().StartUntil("Too many restarts in too short", options));
    ASSERT_TRUE(kzctl.Service().WaitUntilGone());
    EXPECT_EQ(kzctl.Run({"status"}).status, 3);
    const std::string error = kzctl.Member({"status", "--json"}, "last_error");
    EXPECT_NE(error.find("Too many restarts in too short of a time"),
              std::string::npos)
        << error;
}

TEST(KzctlStates, AStalePidFileNamesItsProcess)
{
    const CKzctl kzctl;
    const std::string dead = std::to_string(DeadPid());
    WriteFile(kzctl.Service().PidFile(), dead + "\n");
    EXPECT_EQ(kzctl.Run({"status"}).out,
              "name      kz_agent\n"
              "state     stale: its pid file names process " +
                  dead + ", which is gone\n");
    const std::string own = std::to_string(getpid());
    WriteFile(kzctl.Service().PidFile(), own + "\n");
    EXPECT_EQ(kzctl.Run({"status"}).out,
              "name      kz_agent\n"
              "state     stale: its pid file names process " +
                  own + ", which runs '" +
                  fs::read_symlink("/proc/self/exe").string() + "'\n");
    ExpectComplaint(kzctl.Run({"start"}), 1);
}

TEST(KzctlStates, AnotherDirectoryIsNoticed)
{
    const CKzctl kzctl;
    const std::string other = kzctl.File("elsewhere");
    CServiceOptions options;
    options.arguments = {"--workdir", other};
    ASSERT_EQ(kzctl.Service().Start(options).status, 0);
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            return ReadFile(other + "/log/kz_agent.log").find(kMainRuns) !=
                   std::string::npos;
        }));
    const std::string note = "kzctl: 'kz_agent' works in '" + other +
                             "', not in '" + kzctl.File("work") +
                             "': see --workdir\n";
    const CProcessResult status = kzctl.Run({"status"});
    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(status.err, note);
    EXPECT_NE(status.out.find("\nstate     running\n"), std::string::npos);
    EXPECT_EQ(kzctl.Run({"status", "--workdir", other}).err, "");
    ExpectSaid(kzctl.Run({"log"}), 1, "",
               "kzctl: " + kzctl.File("work/log/kz_agent.log") +
                   ": No such file or directory\n");
    EXPECT_EQ(kzctl.Run({"restart"}).err, note);
    ExpectSaid(kzctl.Run({"stop"}), 0, "'kz_agent' is stopped\n", note);
    EXPECT_TRUE(kzctl.Service().WaitUntilGone());
}

TEST(KzctlStates, AnAgentThatDoesNotAnswerIsNotWaitedForLong)
{
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    const pid_t worker = kzctl.Service().Worker();
    kill(worker, SIGSTOP);
    ExpectSaid(kzctl.Run({"get", "k"}), 1, "",
               "kzctl: the agent does not answer: timeout\n");
    EXPECT_EQ(kzctl.Run({"status"}).status, 0);
    EXPECT_EQ(kzctl.Member({"version", "--json"}, "agent"), "null");
    kill(worker, SIGCONT);
    EXPECT_TRUE(kzctl.Service().Stop());
}

TEST(KzctlStates, NamesWithBlanksAndBeyondAscii)
{
    const CKzctl kzctl(kWaitingMain, "Mein Ägent");
    const std::string work = kzctl.File("a b ö");
    const auto run = [&](Words words)
    {
        words.insert(words.end(),
                     {"--appname", "Mein Ägent", "--workdir", work});
        return kzctl.Run(words);
    };
    ExpectSaid(run({"status"}), 3, "name      Mein Ägent\nstate     stopped\n",
               "");
    ExpectSaid(run({"start"}), 0, "'Mein Ägent' is up\n", "");
    EXPECT_EQ(run({"status"}).status, 0);
    EXPECT_NE(run({"log", "--json"})
                  .out.find("\"component\":\"kza\",\"text\":\"Mein Ägent is "
                            "up\"}\n"),
              std::string::npos);
    EXPECT_EQ(run({"check"}).status, 0);
    ExpectSaid(run({"restart"}), 0,
               "'Mein Ägent' is stopped\n'Mein Ägent' is up\n", "");
    ExpectSaid(run({"stop"}), 0, "'Mein Ägent' is stopped\n", "");
    EXPECT_TRUE(kzctl.Service().WaitUntilGone());
}

TEST(KzctlStates, ASocketOfTooLongAPathIsSaid)
{
    const CKzctl kzctl;
    const std::string work = "/tmp/" + std::string(120, 'w');
    const CProcessResult get = kzctl.Run({"get", "k", "--workdir", work});
    ExpectComplaint(get, 1);
    EXPECT_NE(get.err.find(": path too long for a socket (it is there while "),
              std::string::npos)
        << get.err;
    const CProcessResult version =
        kzctl.Run({"version", "--workdir", work, "--json"});
    EXPECT_EQ(version.status, 0);
    EXPECT_NE(version.out.find("\"agent\":null"), std::string::npos);
}

// --- Of other users --------------------------------------------------------

TEST(KzctlStates, AnotherUserSeesTheServiceAndMayNotTouchIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const CKzctl kzctl;
    ASSERT_TRUE(kzctl.Start());
    ASSERT_TRUE(kzctl.Service().WaitUntilDetached());
    kzctl.OpenToOthers();
    const CProcessResult status = kzctl.Run({"status", "--json"}, AsNobody());
    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(status.err, "");
    EXPECT_NE(status.out.find(
                  "\"state\":\"running\",\"watchdog\":" +
                  std::to_string(kzctl.Service().PidFromFile()) +
                  ",\"worker\":" + std::to_string(kzctl.Service().Worker())),
              std::string::npos)
        << status.out;
    ExpectSaid(kzctl.Run({"stop"}, AsNobody()), 1, "",
               "kzctl: 'kz_agent' could not be asked to stop: Operation not "
               "permitted\n");
    for (const Words& words :
         {Words{"log"}, Words{"log", "-n", "5", "--json"}, Words{"events"},
          Words{"dumps"}, Words{"get", "k"}, Words{"set", "k", "v"}})
    {
        SCOPED_TRACE(words[0]);
        const CProcessResult result = kzctl.Run(words, AsNobody());
        ExpectComplaint(result, 1);
        EXPECT_NE(result.err.find("Permission denied"), std::string::npos)
            << result.err;
    }
    EXPECT_EQ(kzctl.Run({"check"}, AsNobody()).status, 1);
    EXPECT_TRUE(kzctl.Service().Stop());
}

TEST(KzctlStates, APidFileThatCannotBeReadIsStatusFour)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const CKzctl kzctl;
    WriteFile(kzctl.Service().PidFile(), "1\n");
    fs::permissions(kzctl.Service().PidFile(), fs::perms(0600));
    kzctl.OpenToOthers();
    const std::string complaint =
        "kzctl: /var/run/kz_agent.pid: Permission denied\n";
    ExpectSaid(kzctl.Run({"status"}, AsNobody()), 4, "", complaint);
    ExpectSaid(kzctl.Run({"status", "--json"}, AsNobody()), 4, "", complaint);
    ExpectSaid(kzctl.Run({"start"}, AsNobody()), 1, "", complaint);
    ExpectSaid(kzctl.Run({"stop"}, AsNobody()), 1, "", complaint);
}

// --- Of files --------------------------------------------------------------

TEST(KzctlStates, ALogThatRotatesIsFollowed)
{
    const CKzctl kzctl;
    const std::string log = kzctl.File("work/log/kz_agent.log");
    WriteFile(log, Records(1, 3));
    CProcess follow(kzctl.CommandLine({"log", "-f", "-n", "1"}),
                    kzctl.Service().Process());
    std::string expected = Record(3);
    ASSERT_TRUE(WaitUntil([&] { return follow.Out() == expected; }));
    Append(log, Record(4));
    fs::rename(log, log + ".1");
    Append(log + ".1", Record(5)); // by a process that has it open still
    WriteFile(log, Records(6, 7));
    expected += Records(4, 7);
    ASSERT_TRUE(WaitUntil([&] { return follow.Out() == expected; }))
        << follow.Out();
    fs::rename(log + ".1", log + ".2");
    fs::rename(log, log + ".1");
    WriteFile(log, Record(8));
    expected += Record(8);
    ASSERT_TRUE(WaitUntil([&] { return follow.Out() == expected; }))
        << follow.Out();
    follow.Signal(SIGTERM);
    EXPECT_EQ(follow.Wait().status, 0);
}

// Bytes that a process and its children have read.
std::uint64_t BytesRead(pid_t parent)
{
    std::uint64_t sum = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc"))
    {
        const pid_t pid = PidIn(entry.path().filename());
        if (pid <= 0 || (pid != parent && ProcessInfo(pid).parent != parent))
            continue;
        std::ifstream io(entry.path() / "io");
        std::string name;
        std::uint64_t count = 0;
        if (io >> name >> count && name == "rchar:")
            sum += count;
    }
    return sum;
}

TEST(KzctlStates, OfTenGibibytesOfLogTheEndIsRead)
{
    const CKzctl kzctl;
    const std::string log = kzctl.File("work/log/kz_agent.log");
    WriteFile(log, Records(1, 10));
    fs::resize_file(log, 10ULL << 30U);
    Append(log, "\n" + Records(11, 40));
    CProcess follow(kzctl.CommandLine({"log", "-f", "-n", "20"}),
                    kzctl.Service().Process());
    ASSERT_TRUE(WaitUntil([&] { return follow.Out() == Records(21, 40); }));
    const std::uint64_t read = BytesRead(follow.Pid());
    EXPECT_GT(read, 1000U);
    EXPECT_LT(read, 64U << 20U);
    follow.Signal(SIGTERM);
    EXPECT_EQ(follow.Wait().status, 0);
    ExpectSaid(kzctl.Run({"log", "-n", "2"}), 0, Records(39, 40), "");
    EXPECT_EQ(kzctl.Run({"status"}).status, 3);
}

// An events database, made without the agent.
void MakeEvents(const std::string& path, int count)
{
    fs::create_directories(fs::path(path).parent_path());
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    const std::string sql =
        "pragma journal_mode=wal; pragma synchronous=off; create table "
        "agent_event(id integer primary key, number, severity, time, time_ms, "
        "text); with recursive c(i) as (select 1 union all select i + 1 from "
        "c where i < " +
        std::to_string(count) +
        ") insert into agent_event select i, 7, 5, 1795241320 + i, 0, 'event "
        "' || i from c;";
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &message),
              SQLITE_OK)
        << message;
    sqlite3_close(database);
}

TEST(KzctlStates, AMillionEvents)
{
    const CKzctl kzctl;
    MakeEvents(kzctl.File("work/events.db"), 1000000);
    const CProcessResult last = kzctl.Run({"events", "-n", "2", "--json"});
    EXPECT_EQ(last.status, 0) << last.err;
    EXPECT_EQ(last.out.rfind("{\"id\":999999,\"number\":7,\"severity\":5,", 0),
              0U)
        << last.out;
    EXPECT_NE(last.out.find("\n{\"id\":1000000,"), std::string::npos);
    const std::string usual = kzctl.Run({"events"}).out;
    EXPECT_EQ(std::count(usual.begin(), usual.end(), '\n'), 20);
    const std::string after = kzctl.Run({"events", "--after", "999990"}).out;
    EXPECT_EQ(std::count(after.begin(), after.end(), '\n'), 10);
    EXPECT_EQ(kzctl.Run({"check"}).status, 0);
}

TEST(KzctlStates, ADamagedEventsDatabaseIsSaid)
{
    const CKzctl kzctl;
    const std::string path = kzctl.File("work/events.db");
    WriteFile(path, std::string(8192, 'x'));
    ExpectSaid(kzctl.Run({"events"}), 1, "",
               "kzctl: " + path + ": file is not a database\n");
    fs::remove(path);
    MakeEvents(path, 1000);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(4096);
    file << std::string(20000, 'x');
    file.close();
    ExpectComplaint(kzctl.Run({"events"}), 1);
    EXPECT_EQ(ReadFile(path + "-wal"), "") << "nothing is left beside it";
}

TEST(KzctlStates, WhatIsInThePlaceOfAFileIsSaid)
{
    const CKzctl kzctl;
    fs::create_directories(kzctl.File("work/log/kz_agent.log"));
    fs::create_directories(kzctl.File("work/events.db"));
    fs::create_directories(kzctl.File("work/diag/kz_agent.mdmp"));
    for (const char* command : {"log", "events", "dumps"})
        ExpectComplaint(kzctl.Run({command}), 1);
    fs::remove(kzctl.File("work/log/kz_agent.log"));
    ASSERT_EQ(mkfifo(kzctl.File("work/log/kz_agent.log").c_str(), 0600), 0);
    ExpectComplaint(kzctl.Run({"log"}), 1);
    EXPECT_EQ(kzctl.Run({"status"}).status, 3);
}

// --- Of outputs ------------------------------------------------------------

// Runs kzctl behind a line of the shell, where it is "$@"; its status is in the
// file "status".
CProcessResult RunInShell(const CKzctl& kzctl,
                          const std::string& line,
                          const Words& words)
{
    Words all = {"/bin/sh", "-c", line, "sh"};
    for (const std::string& word : kzctl.CommandLine(words))
        all.push_back(word);
    CServiceOptions options;
    options.process.cwd = kzctl.File("");
    return TestSupport::Run(all, kzctl.Service().Process(options));
}

TEST(KzctlStates, AnOutputThatTakesNoMoreIsSaid)
{
    const CKzctl kzctl;
    WriteFile(kzctl.File("work/log/kz_agent.log"), Records(1, 20000));
    const std::pair<const char*, const char*> outputs[] = {
        {"(\"$@\"; echo $? >status) | head -n 1 >head", "Broken pipe"},
        {"\"$@\" >/dev/full; echo $? >status", "No space left on device"},
    };
    for (const auto& [line, reason] : outputs)
        for (const Words& words : {Words{"log", "-n", "20000"},
                                   Words{"log", "-n", "20000", "--json"}})
        {
            SCOPED_TRACE(line);
            const CProcessResult result = RunInShell(kzctl, line, words);
            EXPECT_EQ(ReadFile(kzctl.File("status")), "1\n");
            EXPECT_EQ(result.err,
                      std::string("kzctl: standard output: ") + reason + "\n");
        }
    RunInShell(kzctl, "\"$@\" >&-; echo $? >status", {"log", "-n", "1"});
    EXPECT_EQ(ReadFile(kzctl.File("status")), "0\n");
}

TEST(KzctlStates, AFollowerEndsWithItsReader)
{
    const CKzctl kzctl;
    const std::string log = kzctl.File("work/log/kz_agent.log");
    WriteFile(log, Records(1, 3));
    Words all = {"/bin/sh", "-c", "(\"$@\"; echo $? >status) | head -n 2 >head",
                 "sh"};
    for (const std::string& word : kzctl.CommandLine({"log", "-f", "-n", "1"}))
        all.push_back(word);
    CServiceOptions options;
    options.process.cwd = kzctl.File("");
    CProcess follow(all, kzctl.Service().Process(options));
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            Append(log, Record(4));
            return follow.HasEnded();
        }));
    EXPECT_EQ(ReadFile(kzctl.File("status")), "1\n");
    const std::vector<std::string> head = ReadLines(kzctl.File("head"));
    ASSERT_EQ(head.size(), 2U);
    EXPECT_EQ(head[1] + "\n", Record(4));
}

} // namespace
