// SPDX-License-Identifier: Apache-2.0
//
// A worker of the service dies of a fault: dump, report and restart.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/resource.h>

using namespace TestSupport;

namespace
{

// Crashes in its first two lives, in the way that `way` names.
constexpr char kModule[] = R"lua(
local crash = require('crash')
local path = dom:Get('app.path.work') .. '/lives'
local function live()
  local file = io.open(path, 'a')
  file:write('x')
  file:close()
  return #io.open(path):read('*a')
end
return { main = function()
  local lives = live()
  dom:Log('message', 'life ' .. lives)
  if lives < 3 then crash.now(way) end
end }
)lua";

CServiceOptions WithCrashModule()
{
    CServiceOptions options;
    options.arguments = {"--lua_cpath", KZA_BINARY_DIR "/tests/modules/?.so"};
    return options;
}

std::string NotedProcess(const std::string& dump)
{
    const std::string text = ReadFile(dump);
    const std::string mark = "\nprocess: ";
    const std::size_t at = text.find(mark);
    return at == std::string::npos
               ? std::string()
               : std::to_string(PidIn(text.substr(at + mark.size(), 20)));
}

} // namespace

TEST(CrashService, WorkerIsRestartedAndItsDumpsAreKept)
{
    const CService service;
    service.SetModule("local way = 'segv'" + std::string(kModule));
    ASSERT_TRUE(service.StartUntil("life 1", WithCrashModule()));
    const pid_t watchdog = service.PidFromFile();
    ASSERT_TRUE(service.WaitForLog("life 3"));

    EXPECT_EQ(CountOf(service.Log(), "Child process crashed with status "), 2);
    EXPECT_EQ(CountOf(service.Log(), " (signal 11: Segmentation fault)"), 2);
    const std::string dump = service.Host().File("work/diag/kz_agent.mdmp");
    EXPECT_EQ(CountOf(service.Log(), "MESSAGE kza: Crash dump: " + dump + "\n"),
              2);
    const std::string last = NotedProcess(dump);
    const std::string first = NotedProcess(dump + ".1");
    EXPECT_NE(last, "");
    EXPECT_NE(first, "");
    EXPECT_NE(first, last);
    // Each names the worker that crashed: neither the watchdog that armed the
    // handler nor the worker that lives.
    for (const std::string& process : {first, last})
    {
        EXPECT_NE(process, std::to_string(watchdog));
        EXPECT_NE(process, std::to_string(service.Worker()));
        EXPECT_NE(service.Log().find("[" + process + ":"), std::string::npos);
    }
    EXPECT_EQ(service.PidFromFile(), watchdog);
    EXPECT_TRUE(service.Stop());
}

// Four signals count as crashes; a dump that another one leaves is said too.
TEST(CrashService, DumpAfterAnotherSignalIsAnInformation)
{
    const CService service;
    service.SetModule("local way = 'bus'" + std::string(kModule));
    CServiceOptions options = WithCrashModule();
    options.speed = 20;
    // A core file would show in the status.
    options.process.inChild = []
    {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
    };
    ASSERT_TRUE(service.StartUntil("life 3", options));
    EXPECT_TRUE(service.Stop());
    std::vector<std::string> said;
    for (const std::string& record : service.Records())
        if (record.find("Child process ") != std::string::npos ||
            record.find("Crash dump: ") != std::string::npos)
            said.push_back(record);
    ASSERT_GE(said.size(), 2U);
    EXPECT_EQ(said[0], "INFO kza: Child process exited with status 7 (signal "
                       "7: Bus error)");
    EXPECT_EQ(said[1], "INFO kza: Crash dump: " +
                           service.Host().File("work/diag/kz_agent.mdmp"));
}
