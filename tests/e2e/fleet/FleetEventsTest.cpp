// SPDX-License-Identifier: Apache-2.0
//
// The fleet example with a real server: events arrive once and in order,
// whatever operators and outages do to agent, stream and server.

#include "e2e/fleet/FleetAgent.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

using namespace TestSupport;

namespace fs = std::filesystem;

namespace
{

constexpr char kKey[] = "kza:events:web1";

TEST(FleetEvents, ArriveOnceAndInOrder)
{
    const CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(1200);
    ASSERT_TRUE(agent.Start());
    EXPECT_TRUE(HasEvents(server, "web1", 1, 1200));
    EXPECT_TRUE(agent.Service().Stop());
    agent.Want(1300);
    ASSERT_TRUE(agent.Start());
    EXPECT_TRUE(HasEvents(server, "web1", 1, 1300));
    EXPECT_EQ(CountOf(agent.Service().Log(), "WARNING kza: fleet"), 0);
}

// What waits is in the agent's database, and the agent itself does not grow.
TEST(FleetEvents, WaitForAServerThatIsAway)
{
    CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(10);
    ASSERT_TRUE(agent.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    server.Kill();
    agent.Want(20);
    ASSERT_TRUE(agent.Logs("trying again"));
    ASSERT_TRUE(agent.HasWritten(20));
    agent.Want(1500);
    ASSERT_TRUE(agent.HasWritten(1500));

    ASSERT_TRUE(server.Start());
    agent.Heartbeat();
    EXPECT_TRUE(HasEvents(server, "web1", 1, 1500));
    EXPECT_TRUE(agent.Logs("fleet: no more trouble: " + server.Name()));
}

TEST(FleetEvents, OfATrimmedStreamDoNotComeAgain)
{
    CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(10);
    ASSERT_TRUE(agent.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    server.Do({"xtrim", kKey, "maxlen", "0"});
    server.Kill();
    ASSERT_TRUE(server.Start());
    agent.Want(12);
    agent.Heartbeat();
    EXPECT_TRUE(HasEvents(server, "web1", 11, 12));
}

// On the same connection and on a new one.
TEST(FleetEvents, OfADeletedStreamComeAgain)
{
    CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(10);
    ASSERT_TRUE(agent.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    server.Do({"del", kKey});
    agent.Want(11);
    EXPECT_TRUE(HasEvents(server, "web1", 1, 11));
    server.Do({"del", kKey});
    server.Kill();
    ASSERT_TRUE(server.Start());
    agent.Heartbeat();
    EXPECT_TRUE(HasEvents(server, "web1", 1, 11));
}

TEST(FleetEvents, CompleteAnOlderCopyOfTheServer)
{
    CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(10);
    ASSERT_TRUE(agent.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    const CTempDir copy;
    server.Kill();
    fs::copy(server.Dir().Path(), copy.Path(), fs::copy_options::recursive);
    ASSERT_TRUE(server.Start());
    agent.Want(20);
    agent.Heartbeat();
    ASSERT_TRUE(HasEvents(server, "web1", 1, 20));

    server.Kill();
    fs::remove_all(server.Dir().File("appendonlydir"));
    fs::copy(copy.Path(), server.Dir().Path(), fs::copy_options::recursive);
    ASSERT_TRUE(server.Start());
    ASSERT_EQ(EventsOn(server, "web1"), EventLines(1, 10));
    agent.Heartbeat();
    EXPECT_TRUE(HasEvents(server, "web1", 1, 20));
}

constexpr char kHeld[] =
    "ERROR kza: fleet: events are held back: 'kza:events:web1' has an event "
    "10-0 that is not this host's: another host has its name, or its event "
    "database was begun anew";

// The first one goes on, the second one says so and ships nothing.
TEST(FleetEvents, OfTwoHostsOfOneNameAreNotMixed)
{
    const CRedisServer server;
    const CFleetAgent first("web1", server.Name());
    first.Want(10);
    ASSERT_TRUE(first.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    CFleetAgent second("web1", server.Name());
    second.Want(15);
    ASSERT_TRUE(second.Start());
    EXPECT_TRUE(second.Logs(kHeld));
    EXPECT_TRUE(second.HasWritten(15));
    first.Want(20);
    EXPECT_TRUE(HasEvents(server, "web1", 1, 20));

    // A name of its own, and nothing is lost.
    ASSERT_TRUE(second.Service().Stop());
    second.Set("fleet.host", "web2");
    ASSERT_TRUE(second.Start());
    EXPECT_TRUE(HasEvents(server, "web2", 1, 15));
    EXPECT_EQ(EventsOn(server, "web1"), EventLines(1, 20));
}

// The agent sets the database aside with the next event, and ids begin anew.
TEST(FleetEvents, OfADatabaseBegunAnewWaitForAnOperator)
{
    const CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    agent.Want(10);
    ASSERT_TRUE(agent.Start());
    ASSERT_TRUE(HasEvents(server, "web1", 1, 10));
    ASSERT_TRUE(agent.Service().Stop());
    const std::string work = agent.Service().Host().Work();
    WriteFile(work + "/events.db", std::string(8192, 'x'));
    fs::remove(work + "/events.db-wal");
    fs::remove(work + "/events.db-shm");
    const CService& service = agent.Service();
    service.SetModule("local fleet = require('fleet')\n"
                      "return { init = function()\n"
                      "  fleet.init()\n"
                      "  for i = 1, 4 do\n"
                      "    dom:AgentEventWrite{ text = 'event ' .. i,\n"
                      "      number = 1, severity = 5 }\n"
                      "  end\n"
                      "end, main = fleet.main, shutdown = fleet.shutdown }");
    ASSERT_TRUE(agent.Start());
    EXPECT_TRUE(agent.Logs("set aside as"));
    EXPECT_TRUE(agent.Logs(kHeld));
    EXPECT_EQ(EventsOn(server, "web1"), EventLines(1, 10));

    server.Do({"del", kKey});
    EXPECT_TRUE(HasEvents(server, "web1", 1, 4));
    EXPECT_TRUE(agent.Logs("fleet: events are shipped again"));
}

// A server that takes no more keeps its order: none of a batch, or all.
TEST(FleetEvents, WaitForAServerThatIsFull)
{
    const CRedisServer server;
    const CFleetAgent agent("web1", server.Name());
    server.Do({"config", "set", "maxmemory", "1"});
    agent.Want(100);
    ASSERT_TRUE(agent.Start());
    EXPECT_TRUE(agent.Logs("WARNING kza: fleet: OOM"));
    server.Do({"config", "set", "maxmemory", "0"});
    agent.Heartbeat();
    EXPECT_TRUE(HasEvents(server, "web1", 1, 100));
}

} // namespace
