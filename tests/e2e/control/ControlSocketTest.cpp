// SPDX-License-Identifier: Apache-2.0
//
// The control socket of a running agent, as its clients see it.

#include "e2e/control/Peer.h"
#include "e2e/service/WaitingService.h"

#include "support/Host.h"
#include "support/Process.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

bool Exists(const std::string& path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0;
}

const std::string kAskName = R"({"do":"get","key":"app.name"})";
const std::string kName = R"({"ok":true,"type":"string","value":"kz_agent"})";

TEST(ControlSocket, AnswersWhileTheApplicationRuns)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));

    struct stat info = {};
    ASSERT_EQ(stat(SocketOf(service).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode, S_IFSOCK | 0600U);
    ASSERT_EQ(stat((service.Host().Work() + "/run").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode, S_IFDIR | 0700U);

    CPeer peer(SocketOf(service));
    EXPECT_EQ(peer.Ask(kAskName), kName);
    EXPECT_EQ(peer.Ask(R"({"do":"version"})"),
              R"({"ok":true,"name":"kz_agent","version":"12.0.0.2932","pid":)" +
                  std::to_string(service.Worker()) + "}");

    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(peer.Line(), "") << "the connection ends with the agent";
    EXPECT_FALSE(Exists(SocketOf(service)));
}

TEST(ControlSocket, IsNotThereUnlessAskedFor)
{
    for (const std::string setting :
         {"other=1", "control.socket=0", "control.socket=false",
          "control.socket=yes"})
    {
        SCOPED_TRACE(setting);
        const CHost host;
        host.AddModule("tool", "return {}");
        const CProcessResult result =
            host.Run({"--appname", "tool", "--domain_var", setting});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(Exists(host.Work()));
        EXPECT_FALSE(Exists(host.Work() + "/run"));
    }
}

TEST(ControlSocket, ToolRemovesItsSocketToo)
{
    const CHost host;
    const CProcessResult result =
        host.Run({"--appname", "tool", "--domain_var", "control.socket=true",
                  "--lua_path", host.File("?.lua")},
                 {});
    EXPECT_NE(result.status, 0) << "there is no such module";
    EXPECT_TRUE(Exists(host.Work() + "/run"));
    EXPECT_FALSE(Exists(host.Work() + "/run/tool.sock"));
}

TEST(ControlSocket, TellsAWatcherOfWhatLuaSets)
{
    CService service;
    service.SetModule("local m = {}\n"
                      "function m.main()\n"
                      "  dom:Log('message', 'in main')\n"
                      "  dom:Wait('go', 600000)\n"
                      "  for i = 1, 100 do dom:Set('k', i) end\n"
                      "  dom:Set('k', nil)\n"
                      "  dom:Sleep(600000)\n"
                      "end\n"
                      "return m\n");
    ASSERT_TRUE(service.StartUntil("in main", kSwitchedOn));
    CPeer watcher(SocketOf(service));
    const std::string nil = R"({"ok":true,"type":"nil"})";
    EXPECT_EQ(watcher.Ask(R"({"do":"watch","key":"k"})"), nil);
    CPeer other(SocketOf(service));
    EXPECT_EQ(other.Ask(R"({"do":"set","key":"go","value":true})"),
              R"({"ok":true})");
    for (int i = 1; i <= 100; ++i)
        ASSERT_EQ(watcher.Line(), R"({"ok":true,"type":"number","value":)" +
                                      std::to_string(i) + "}");
    EXPECT_EQ(watcher.Line(), nil);
    EXPECT_TRUE(service.Stop());
}

TEST(ControlSocket, NextWorkerTakesThePlaceOfAKilledOne)
{
    CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options = kSwitchedOn;
    options.speed = 20;
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    const pid_t first = service.Worker();
    CPeer peer(SocketOf(service));
    EXPECT_EQ(peer.Ask(kAskName), kName);
    kill(first, SIGKILL);
    EXPECT_EQ(peer.Line(), "");
    EXPECT_TRUE(Exists(SocketOf(service))) << "left by the killed worker";
    ASSERT_TRUE(service.WaitForLog(kMainRuns, 2));
    CPeer next(SocketOf(service));
    EXPECT_EQ(next.Ask(kAskName), kName);
    EXPECT_TRUE(service.Stop());
    EXPECT_FALSE(Exists(SocketOf(service)));
}

TEST(ControlSocket, KeepsSixteenClientsAndTellsTheNext)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    std::vector<std::unique_ptr<CPeer>> peers;
    for (int i = 0; i < 16; ++i)
    {
        peers.push_back(std::make_unique<CPeer>(SocketOf(service)));
        EXPECT_EQ(peers.back()->Ask(kAskName), kName);
    }
    CPeer seventeenth(SocketOf(service));
    EXPECT_EQ(seventeenth.Line(), R"({"ok":false,"error":"too many clients"})");
    EXPECT_EQ(seventeenth.Line(), "") << "and its connection is closed";

    // A client that goes makes room, also in the middle of a line.
    peers[3]->Send("{\"do\":");
    peers[3].reset();
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            CPeer next(SocketOf(service));
            return next.Ask(kAskName) == kName;
        }));
    EXPECT_EQ(peers[0]->Ask(kAskName), kName);
    EXPECT_TRUE(service.Stop());
}

TEST(ControlSocket, OutlivesAThousandConnections)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    for (int round = 0; round < 20; ++round)
    {
        std::vector<std::unique_ptr<CPeer>> peers;
        for (int i = 0; i < 50; ++i)
        {
            peers.push_back(std::make_unique<CPeer>(SocketOf(service)));
            peers.back()->Send(i % 3 == 0 ? "garbage\n" : "{\"do\":\"ge");
        }
    }
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            CPeer peer(SocketOf(service));
            return peer.Ask(kAskName) == kName;
        }));
    EXPECT_TRUE(service.Stop());
}

TEST(ControlSocket, ClosesClientsThatSayNothing)
{
    CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options = kSwitchedOn;
    options.speed = 100; // a minute passes in less than a second
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    std::vector<std::unique_ptr<CPeer>> silent;
    silent.reserve(16);
    for (int i = 0; i < 16; ++i)
        silent.push_back(std::make_unique<CPeer>(SocketOf(service)));
    silent[0]->Send("{\"do\":"); // half a line is said once
    for (const auto& peer : silent)
        EXPECT_EQ(peer->Line(), "");
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            CPeer next(SocketOf(service));
            return next.Ask(kAskName) == kName;
        }));
    EXPECT_TRUE(service.Stop());
}

// A client in a process of its own, which ends by SIGKILL while it watches a
// key, has answers that it never read, and has written half a line.
void RunAndKillClient(const std::string& path)
{
    const pid_t child = fork();
    if (child == 0)
    {
        CPeer peer(path);
        (void)peer.Ask(R"({"do":"watch","key":"k"})");
        for (int i = 0; i < 100; ++i)
            peer.Send(R"({"do":"keys"})"
                      "\n");
        peer.Send("{\"do\":\"set\",\"key");
        raise(SIGKILL);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(ControlSocket, OutlivesClientsThatAreKilled)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    const pid_t worker = service.Worker();
    for (int i = 0; i < 20; ++i) // more than there may be at once
    {
        RunAndKillClient(SocketOf(service));
        CPeer peer(SocketOf(service));
        EXPECT_EQ(peer.Ask(R"({"do":"set","key":"k","value":7})"),
                  R"({"ok":true})");
    }
    EXPECT_EQ(service.Worker(), worker);
    EXPECT_TRUE(service.Stop());
}

TEST(ControlSocket, ClientsDoNotHoldUpAStop)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    CPeer watcher(SocketOf(service));
    EXPECT_EQ(watcher.Ask(R"({"do":"watch","key":"k"})"),
              R"({"ok":true,"type":"nil"})");
    CPeer silent(SocketOf(service));
    CPeer half(SocketOf(service));
    half.Send("{\"do\":");
    CPeer unread(SocketOf(service));
    for (int i = 0; i < 1000; ++i)
        unread.Send(R"({"do":"keys"})"
                    "\n");
    EXPECT_TRUE(service.Stop());
    for (CPeer* const peer : {&watcher, &silent, &half})
        EXPECT_EQ(peer->Line(), "");
    EXPECT_FALSE(Exists(SocketOf(service)));
    EXPECT_EQ(CountOf(service.Log(), "Stop requested"), 0);
}

TEST(ControlSocket, WhatCannotBeASocketIsAWarning)
{
    CService service;
    service.SetModule(kWaitingMain);
    const std::string run = service.Host().Work() + "/run";
    ASSERT_EQ(mkdir(service.Host().Work().c_str(), 0700), 0);
    ASSERT_EQ(mkdir(run.c_str(), 0700), 0);
    WriteFile(run + "/kz_agent.sock", "mine");
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    EXPECT_NE(service.Log().find("WARNING kza: No control socket '" + run +
                                 "/kz_agent.sock': something else is in its "
                                 "place\n"),
              std::string::npos)
        << service.Log();
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(ReadFile(run + "/kz_agent.sock"), "mine");
}

TEST(ControlSocket, OtherUsersAreRefused)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    // With the directories and the socket open to all users, only the check of
    // the peer's user is left to refuse one.
    const std::string path = SocketOf(service);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    for (std::string dir = path.substr(0, path.rfind('/')); dir != "/tmp";
         dir.erase(dir.rfind('/')))
    {
        if (dir.empty() || dir.rfind("/tmp/", 0) != 0)
            break;
        ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
    }
    const pid_t child = fork();
    if (child == 0)
    {
        if (setuid(65534) != 0)
            _exit(10);
        CPeer peer(path);
        if (!peer.IsConnected())
            _exit(11);
        _exit(peer.Ask(kAskName).empty() ? 0 : 12);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    CPeer own(path);
    EXPECT_EQ(own.Ask(kAskName), kName);
    EXPECT_TRUE(service.Stop());
}

} // namespace
