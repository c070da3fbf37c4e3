// SPDX-License-Identifier: Apache-2.0
//
// The example agent, as `./dev run` and as a service.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <sstream>

using namespace TestSupport;

namespace
{

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

const std::regex kHeartbeat(
    R"(\d\d:\d\d:\d\d  up \d+d \d\d:\d\d, load [\d. ]+, )"
    R"(memory \d+% of [\d.]+ .iB, disk \S+ \d+% of [\d.]+ .iB)");

} // namespace

TEST(ExampleAgent, PrintsALineForEachHeartbeatUntilCtrlC)
{
    const CHost host;
    CProcess agent(host.Words({"--domain_var", "vitals.interval=100"}));
    ASSERT_TRUE(WaitUntil([&] { return LinesOf(agent.Out()).size() >= 3; }));
    agent.Signal(SIGINT);
    const CProcessResult result = agent.Wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const std::string& line : LinesOf(result.out))
        EXPECT_TRUE(std::regex_match(line, kHeartbeat)) << line;
    EXPECT_NE(host.Log().find("vitals: watching, every 100 ms"),
              std::string::npos);
    EXPECT_GE(CountOf(host.Log(), "vitals: up "), 3);
}

// An interval of a day, so that only the request can end the wait.
TEST(ExampleAgent, StopsInOrderAsAService)
{
    const CService service("vitals");
    service.SetModule("return require('kz_agent')");
    CServiceOptions options;
    options.arguments = {"--zippath",
                         std::string(KZA_STAGE_DIR) + "/kza_core/kz_agent.kze",
                         "--domain_var", "vitals.interval=86400000"};
    ASSERT_TRUE(service.StartUntil("vitals: up ", options)) << service.Log();
    EXPECT_TRUE(service.Stop());
    EXPECT_NE(service.Log().find("vitals: stopped after 1 heartbeats"),
              std::string::npos)
        << service.Log();
}
