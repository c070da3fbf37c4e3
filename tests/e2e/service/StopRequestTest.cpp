// SPDX-License-Identifier: Apache-2.0
//
// What a stop request does to a script that is still in its init or main.

#include "e2e/service/Workers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

const std::string kShutdown = "MESSAGE kza: shutdown runs";

// Said by the script when it is where the test wants it.
const std::string kReady = "ready for the stop";

CServiceOptions Traced()
{
    CServiceOptions options;
    options.arguments = {"--trace", "Appl"};
    return options;
}

// Asks the worker alone to stop, so that no child of it is disturbed, and waits
// until its main thread has noticed.
bool AskToStop(const CService& service)
{
    kill(service.Worker(), SIGTERM);
    return service.WaitForLog("Stop request noticed");
}

// Ends the loop of a script that goes on until it finds the file.
void LetGoOn(const CService& service)
{
    WriteFile(service.Host().Work() + "/go_on", "");
}

// What the service said since the script was ready, without the record that its
// init has returned.
Lines SaidSinceReady(const CService& service)
{
    Lines said;
    bool isReady = false;
    const std::string isUp = "MESSAGE kza: " + service.Name() + " is up";
    for (const std::string& record : Said(service))
    {
        if (isReady && record != isUp)
            said.push_back(record);
        isReady = isReady || record == "MESSAGE kza: " + kReady;
    }
    return said;
}

// Starts the service, asks it to stop once its script is ready, and waits for
// its end.
//
// \param afterRequest  Called once the request has been noticed.
//
// \return what it said since the script was ready.
Lines SaidWhenAskedToStop(
    const CService& service,
    const std::string& module,
    const std::function<void()>& afterRequest = [] {},
    const CServiceOptions& options = Traced())
{
    service.SetModule(module);
    if (!service.StartUntil(kReady, options) || !AskToStop(service))
    {
        ADD_FAILURE() << service.Log();
        return {};
    }
    afterRequest();
    EXPECT_TRUE(service.WaitUntilGone());
    return SaidSinceReady(service);
}

// A service whose init or main reads from a fifo while the stop comes.
class StopWhileReading : public testing::TestWithParam<const char*>
{
protected:
    // Runs the Lua code as the named function, asks for the stop meanwhile, and
    // then writes a line into the fifo; answers what the service said.
    Lines Run(const std::string& function, const std::string& code)
    {
        const std::string work = m_service.Host().Work();
        std::filesystem::create_directories(work);
        const std::string fifo = work + "/fifo";
        EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        // Opened for both ways, the writer waits for no reader.
        const int writer = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
        Lines said = SaidWhenAskedToStop(
            m_service,
            "local M = {}\n"
            "function M.shutdown() dom:Log('message', 'shutdown runs') end\n"
            "function M." +
                function + "()\n" + code +
                "end\n"
                "return M",
            [writer] { EXPECT_EQ(write(writer, "a line\n", 7), 7); });
        close(writer);
        return said;
    }

private:
    const CService m_service{"reading"};
};

TEST_P(StopWhileReading, AFileGivesWhatComes)
{
    const Lines said =
        Run(GetParam(), "  local file = io.open('fifo', 'r+')\n"
                        "  dom:Log('message', 'ready for the stop')\n"
                        "  dom:Log('message', 'read ' .. file:read())\n");
    const Lines expected = {"MESSAGE kza: read a line", kCaught, kShutdown,
                            Exited(0)};
    EXPECT_EQ(said, expected);
}

TEST_P(StopWhileReading, AProgramGivesWhatComes)
{
    const Lines said =
        Run(GetParam(), "  local pipe = io.popen('head -n 1 <>fifo')\n"
                        "  dom:Log('message', 'ready for the stop')\n"
                        "  dom:Log('message', 'read ' .. pipe:read())\n"
                        "  dom:Log('message', tostring(pipe:close()))\n");
    const Lines expected = {"MESSAGE kza: read a line", "MESSAGE kza: true",
                            kCaught, kShutdown, Exited(0)};
    EXPECT_EQ(said, expected);
}

INSTANTIATE_TEST_SUITE_P(Stop,
                         StopWhileReading,
                         testing::Values("init", "main"),
                         [](const auto& test)
                         { return std::string(test.param); });

// Lua functions for the log: what a wait answered, and whether it lasted.
const std::string kTimed = R"lua(
local function uptime()
  local file = io.open("/proc/uptime")
  local time = file:read("*n")
  file:close()
  return time
end
local function log(what) dom:Log("message", what) end
local function timed(name, wait, seconds)
  local start = uptime()
  local answer = tostring(wait())
  local lasted = uptime() - start >= seconds
  log(name .. " " .. answer .. (lasted and " in time" or " early"))
end
local M = {}
)lua";

TEST(StopRequest, CutsOneWaitOfMainAndLaterOnesLastTheirTime)
{
    const CService service("sleeping");
    const Lines said = SaidWhenAskedToStop(service, kTimed + R"lua(
function M.main()
  log("ready for the stop")
  timed("sleep", function() return dom:Sleep(600000) end, 600)
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
  timed("wait", function() return dom:Wait("sleeping.key", 200) end, 0.19)
  log("asked " .. tostring(dom:Sleep(0)))
  dom:Set("sleeping.key", true)
  timed("wait", function() return dom:Wait("sleeping.key", 600000) end, 600)
end
function M.shutdown()
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
  log("wait " .. tostring(dom:Wait("sleeping.key", 0)))
end
return M
)lua");
    const Lines expected = {"MESSAGE kza: sleep false early",
                            "MESSAGE kza: sleep false in time",
                            "MESSAGE kza: wait false in time",
                            "MESSAGE kza: asked false",
                            "MESSAGE kza: wait false early",
                            kCaught,
                            "MESSAGE kza: sleep true in time",
                            "MESSAGE kza: wait true",
                            Exited(0)};
    EXPECT_EQ(said, expected);
}

TEST(StopRequest, CutsAWaitForAKey)
{
    const CService service("waiting");
    const Lines said = SaidWhenAskedToStop(service, kTimed + R"lua(
function M.main()
  log("ready for the stop")
  timed("wait", function() return dom:Wait("waiting.key", 600000) end, 600)
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
end
return M
)lua");
    const Lines expected = {"MESSAGE kza: wait false early",
                            "MESSAGE kza: sleep false in time", kCaught,
                            Exited(0)};
    EXPECT_EQ(said, expected);
}

// Work that is busy when the stop comes hears of it at its next wait.
TEST(StopRequest, CutsTheNextWaitOfABusyMain)
{
    const CService service("busy");
    const Lines said = SaidWhenAskedToStop(service, kTimed + R"lua(
function M.main()
  log("ready for the stop")
  repeat until io.open("go_on")
  timed("sleep", function() return dom:Sleep(600000) end, 600)
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
end
return M
)lua",
                                           [&] { LetGoOn(service); });
    const Lines expected = {"MESSAGE kza: sleep false early",
                            "MESSAGE kza: sleep false in time", kCaught,
                            Exited(0)};
    EXPECT_EQ(said, expected);
}

TEST(StopRequest, IsToldToMainAndNotToInit)
{
    const CService service("early");
    const Lines said = SaidWhenAskedToStop(service, kTimed + R"lua(
function M.init()
  log("ready for the stop")
  repeat until io.open("go_on")
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
  dom:Set("early.key", true)
  log("wait " .. tostring(dom:Wait("early.key", 0)))
  dom:Set("early.key", true)
  log("wait " .. tostring(dom:Wait("early.key", 0)))
end
function M.main()
  timed("sleep", function() return dom:Sleep(600000) end, 600)
end
return M
)lua",
                                           [&] { LetGoOn(service); });
    const Lines expected = {"MESSAGE kza: sleep true in time",
                            "MESSAGE kza: wait false",
                            "MESSAGE kza: wait true",
                            "MESSAGE kza: sleep false early",
                            kCaught,
                            Exited(0)};
    EXPECT_EQ(said, expected);
}

std::string StillRunning(long seconds)
{
    return "WARNING kza: Stop requested " + std::to_string(seconds) +
           " s ago, 'main' is still running";
}

// The service's clock runs faster: ten seconds pass in a fraction of one.
// On a busy machine it may be late by so much that one of the records is left
// out; which ones are due when is tested with the arithmetic itself.
TEST(StopRequest, MainThatDoesNotReturnIsNamedAgainAndAgain)
{
    const CService service("stubborn");
    CServiceOptions options = Traced();
    options.speed = 100;
    Lines said = SaidWhenAskedToStop(
        service,
        "return { main = function()\n"
        "  dom:Log('message', 'ready for the stop')\n"
        "  repeat until io.open('go_on')\n"
        "end }",
        [&]
        {
            EXPECT_TRUE(service.WaitForLog("Stop requested ", 3));
            LetGoOn(service);
        },
        options);

    ASSERT_GE(said.size(), 5U);
    EXPECT_EQ(said.back(), Exited(0));
    said.pop_back();
    EXPECT_EQ(said.back(), kCaught);
    said.pop_back();
    long due = 10;
    for (const std::string& record : said)
    {
        while (due < 100000 && record != StillRunning(due))
            due *= 2;
        EXPECT_EQ(record, StillRunning(due));
        due *= 2;
    }
}

TEST(StopRequest, MainThatFollowsIsNotNamed)
{
    const CService service("obedient");
    CServiceOptions options = Traced();
    options.speed = 100;
    const Lines said = SaidWhenAskedToStop(
        service,
        "return {\n"
        "  main = function()\n"
        "    dom:Log('message', 'ready for the stop')\n"
        "    dom:Sleep(math.huge)\n"
        "  end,\n"
        "  shutdown = function()\n"
        "    local start = os.time()\n"
        "    repeat until os.time() - start >= 25\n"
        "  end }",
        [] {}, options);
    const Lines expected = {kCaught, Exited(0)};
    EXPECT_EQ(said, expected);
}

} // namespace
