// SPDX-License-Identifier: Apache-2.0
//
// When SQLite comes into the process, and what happens when it cannot.

#include "support/Host.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace
{

// Says before and after an event is written whether the library is there.
constexpr char kTool[] =
    "local function has_sqlite()\n"
    "  return io.open('/proc/self/maps'):read('*a'):find('libsqlite3', 1, true)"
    " ~= nil\n"
    "end\n"
    "print(has_sqlite())\n"
    "print(dom:AgentEventWrite{text = 'noted', number = 1, severity = 1})\n"
    "print(has_sqlite())\n"
    "return {}\n";

TEST(Sqlite, ComesWithTheFirstEvent)
{
    const CHost host(false);
    const SProcessResult result = host.RunTool("events", kTool);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "false\n1\ntrue\n");
}

TEST(Sqlite, IsThereFromTheStartWhereItHasSettings)
{
    const CHost host(false);
    const CTempDir work;
    WriteFile(work.File("kz_agent.ini"), "sqlite.config.memstatus=0\n");
    const SProcessResult result =
        host.RunTool("events", kTool, {"--workdir", work.Path()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "true\n1\ntrue\n");
}

TEST(Sqlite, ThatCannotBeLoadedLeavesEventsToTheLog)
{
    const CHost host(false);
    const CTempDir libraries;
    WriteFile(libraries.File("libsqlite3.so.0"), "no library\n");
    SProcessOptions options;
    options.env = {{"LD_LIBRARY_PATH", libraries.Path()}};
    const SProcessResult result = host.RunTool("events", kTool, {}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string log = host.Log("events");
    EXPECT_NE(log.find("ERROR kza: Agent event not stored in its database (" +
                       libraries.File("libsqlite3.so.0") + ": "),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("number 1, severity 1"), std::string::npos) << log;
}

TEST(Sqlite, ThatCannotBeLoadedForItsSettingsIsAnError)
{
    const CHost host(false);
    const CTempDir libraries;
    WriteFile(libraries.File("libsqlite3.so.0"), "no library\n");
    WriteFile(libraries.File("kz_agent.ini"), "sqlite.config.memstatus=0\n");
    SProcessOptions options;
    options.env = {{"LD_LIBRARY_PATH", libraries.Path()}};
    const SProcessResult result =
        host.RunTool("plain", "print('runs') return {}",
                     {"--workdir", libraries.Path()}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "runs\n");
    const std::string log = ReadFile(libraries.File("log/plain.log"));
    EXPECT_NE(log.find("ERROR kza: SQLite does not start: " +
                       libraries.File("libsqlite3.so.0") + ": "),
              std::string::npos)
        << log;
}

} // namespace
