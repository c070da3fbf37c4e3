// SPDX-License-Identifier: Apache-2.0
//
// How main thread and script thread hand over, what is shut down by whom, and
// what the end of the service reports.

#include "e2e/service/WaitingService.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <sched.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

using Variables = std::vector<std::pair<std::string, std::string>>;

CProcessOptions WithFaults(Variables variables)
{
    CProcessOptions options;
    options.env = std::move(variables);
    options.env.emplace_back("LD_PRELOAD",
                             KZA_BINARY_DIR "/tests/libprocess_faults.so");
    // The sanitizer wants to be the first library.
    options.env.emplace_back("ASAN_OPTIONS", "verify_asan_link_order=0");
    // A shell may have started the tests with SIGINT ignored.
    options.inChild = [] { (void)signal(SIGINT, SIG_DFL); };
    return options;
}

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// The threads of a process but for one that the sanitizer has of its own.
int Threads(pid_t pid)
{
    const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
    const auto count = std::distance(fs::directory_iterator(tasks), {});
    return static_cast<int>(count) -
           (std::string(KZA_SANITIZE) == "thread" ? 1 : 0);
}

bool MainThreadWaitsForEvents(pid_t pid)
{
    const std::string process = "/proc/" + std::to_string(pid);
    return Contains(ReadFile(process + "/wchan"), "ep_poll") ||
           ReadFile(process + "/syscall").rfind("232 ", 0) == 0;
}

// The loop is not there yet when the script asks for its end.
TEST(RunDriver, ScriptThatEndsBeforeTheLoopLeavesTheRunGoing)
{
    const CHost host(false);
    host.AddModule("kz_agent", "return {}");
    const std::string goOn = host.File("go-on");
    CProcess agent(host.Words({"--trace", "Appl"}),
                   WithFaults({{"KZA_HOLD", "epoll_create"},
                               {"KZA_HOLD_FILE", goOn},
                               // The main thread does not join the script
                               // thread before the SIGINT.
                               {"TSAN_OPTIONS", "report_thread_leaks=0"}}));
    ASSERT_TRUE(WaitUntil([&] { return FileExists(goOn + ".held"); }));
    ASSERT_TRUE(WaitUntil(
        [&] { return Contains(host.Log(), "Lua method 'shutdown'"); }));
    ASSERT_TRUE(WaitUntil([&] { return Threads(agent.Pid()) == 1; }));
    WriteFile(goOn, "");
    EXPECT_TRUE(
        WaitUntil([&] { return MainThreadWaitsForEvents(agent.Pid()); }));
    EXPECT_FALSE(agent.HasEnded());

    agent.Signal(SIGINT); // its handler is there by now
    EXPECT_EQ(agent.Wait().status, 0);
}

// Confines the calling process to one of its processors.
void PinToOneProcessor()
{
    cpu_set_t all;
    sched_getaffinity(0, sizeof all, &all);
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &all))
        --last;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// On a busy processor the script thread may come to its end before the main
// thread has entered its loop, unless it gives the main thread some time.
TEST(RunDriver, ThousandStartsOnABusyProcessorAllEnd)
{
    const CHost host(false);
    host.AddModule("kz_agent", "return { main = function() end }");
    CProcessOptions pinned;
    pinned.inChild = PinToOneProcessor;
    const CProcess busy({"/bin/sh", "-c", "while :; do :; done"}, pinned);
    const int starts = std::string(KZA_SANITIZE).empty() ? 1000 : 100;
    for (int i = 0; i < starts; ++i)
    {
        SCOPED_TRACE(i);
        CProcess agent(host.Words({}), pinned);
        ASSERT_EQ(agent.Wait(std::chrono::seconds(30)).status, 0);
    }
}

TEST(RunDriver, SigintKillsUntilTheHandlersAreThere)
{
    const CHost host(false);
    host.AddModule("early", "return {}");
    const std::string goOn = host.File("go-on");
    CProcess agent(
        host.Words({"--appname", "early"}),
        WithFaults({{"KZA_HOLD", "sigaction"}, {"KZA_HOLD_FILE", goOn}}));
    ASSERT_TRUE(WaitUntil([&] { return FileExists(goOn + ".held"); }));
    agent.Signal(SIGINT);
    EXPECT_EQ(agent.Wait().signal, SIGINT);
}

// How often, and on which threads, the libraries were shut down.
std::vector<std::string> ShutDowns(const std::string& steps)
{
    std::vector<std::string> found;
    for (const std::string& line : ReadLines(steps))
        if (line.rfind("clean-up", 0) == 0)
            found.push_back(line);
    return found;
}

const std::string kByMain = "clean-up on the main thread";
const std::string kByScript = "clean-up on the script thread";

TEST(RunDriver, ToolShutsTheLibrariesDownOnItsScriptThread)
{
    const CHost host(false);
    const std::string steps = host.File("steps");
    const CProcessResult result =
        host.RunTool("tool", "return { main = function() return 3 end }", {},
                     WithFaults({{"KZA_STEP_LOG", steps}}));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(ShutDowns(steps), std::vector<std::string>{kByScript});
}

TEST(RunDriver, AgentShutsTheLibrariesDownOnItsMainThread)
{
    const CHost host(false);
    const std::string steps = host.File("steps");
    const CProcessResult result = host.RunTool(
        "kz_agent",
        "return { main = function() require('mainloop').wait() end }",
        {"--lua_path", KZA_SOURCE_DIR "/tests/support/lua/?.lua"},
        WithFaults({{"KZA_STEP_LOG", steps}}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ShutDowns(steps), std::vector<std::string>{kByMain});
}

TEST(RunDriver, WorkerAndWatchdogShutTheLibrariesDownOnceEach)
{
    const CService service;
    service.SetModule(kWaitingMain);
    const std::string steps = service.Host().File("steps");
    CServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_STEP_LOG", steps}};
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    EXPECT_TRUE(service.WaitUntilDetached());
    const std::size_t before = ShutDowns(steps).size();
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(ShutDowns(steps).size() - before, 2U);
    EXPECT_EQ(ShutDowns(steps).back(), kByMain);
}

// The constructor sets the level of the log, and only the foreground raises it.
TEST(RunDriver, BackgroundLeavesDebugRecordsOut)
{
    const CService service;
    service.SetModule("return { main = function()"
                      "  require('mainloop').wait()"
                      "  dom:Log('debug', 'a detail')"
                      "  dom:Log('info', 'main runs')"
                      " end }");
    ASSERT_TRUE(service.StartUntil(kMainRuns));
    EXPECT_EQ(CountOf(service.Log(), "a detail"), 0);
    EXPECT_TRUE(service.Stop());
}

TEST(RunDriver, UnitTestsAreForTheForeground)
{
    const CService service("tested");
    service.SetModule(kWaitingMain);
    const std::string test = service.Host().File("a_test.lua");
    WriteFile(test, "dom:Log('message', 'the test runs')\n");
    CServiceOptions options;
    options.arguments = {"--unittest", test};
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(CountOf(service.Log(), "the test runs"), 0);
}

// The report is about the whole service: its time begins with the launch and
// not with the second worker.
TEST(ExitReport, RunTimeCountsFromTheLaunch)
{
    const CService service;
    service.SetModule("return { main = function()\n"
                      "  require('mainloop').wait()\n"
                      "  local start = os.time()\n"
                      "  repeat until os.time() - start >= 90\n"
                      "  if io.open('second') then return 7 end\n"
                      "  io.open('second', 'w'):close()\n"
                      "  return 3\n"
                      "end }");
    CServiceOptions options;
    options.speed = 1000;
    ASSERT_TRUE(service.StartUntil("exiting. Run time was ", options));
    std::smatch time;
    const std::string last = service.Records().back();
    ASSERT_TRUE(std::regex_match(
        last, time,
        std::regex("INFO kza: KZA 12\\.0\\.0\\.2932 exiting\\. Run time was "
                   "(\\d+)d (\\d\\d):(\\d\\d):(\\d\\d)\\.\\d{3}")))
        << last;
    const auto field = [&time](std::size_t i) { return std::stol(time[i]); };
    EXPECT_GE(((field(1) * 24 + field(2)) * 60 + field(3)) * 60 + field(4),
              2 * 90 - 2);
}

} // namespace
