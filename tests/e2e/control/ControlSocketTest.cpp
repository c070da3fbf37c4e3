// SPDX-License-Identifier: Apache-2.0
//
// The control socket of a running agent, as its clients see it.

#include "e2e/service/WaitingService.h"

#include "support/Host.h"
#include "support/Process.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

const CServiceOptions kSwitchedOn{{"--domain_var", "control.socket=1"}, {}};

// One connection to the socket, which the test reads line by line.
class CPeer
{
public:
    explicit CPeer(const std::string& path)
        : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        m_connected = connect(m_fd, reinterpret_cast<sockaddr*>(&address),
                              sizeof address) == 0;
    }
    ~CPeer() { close(m_fd); }
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    [[nodiscard]] bool IsConnected() const { return m_connected; }

    void Send(const std::string& bytes) const
    {
        (void)send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    // The next line without its end; empty when the agent closes first.
    std::string Line()
    {
        for (;;)
        {
            const std::size_t end = m_in.find('\n');
            if (end != std::string::npos)
            {
                std::string line = m_in.substr(0, end);
                m_in.erase(0, end + 1);
                return line;
            }
            if (!Receive())
                return {};
        }
    }

    std::string Ask(const std::string& request)
    {
        Send(request + "\n");
        return Line();
    }

private:
    bool Receive()
    {
        pollfd poll{m_fd, POLLIN, 0};
        const int limit =
            static_cast<int>(std::chrono::milliseconds(kLongWait).count());
        if (::poll(&poll, 1, limit) != 1)
            return false;
        std::array<char, 65536> piece;
        const ssize_t count = recv(m_fd, piece.data(), piece.size(), 0);
        if (count > 0)
            m_in.append(piece.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    int m_fd;
    bool m_connected = false;
    std::string m_in;
};

std::string SocketOf(const CService& service)
{
    return service.Host().Work() + "/run/" + service.Name() + ".sock";
}

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

    // One that goes, in the middle of a line even, makes room.
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
    // As if the directories let everybody through.
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
