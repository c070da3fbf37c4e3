// SPDX-License-Identifier: Apache-2.0
//
// What a stop request does to a script that is still in its init or main.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

using Lines = std::vector<std::string>;

const std::string kCaught = "WARNING kza: sigwait(): caught signal 15";
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

// What the service said once the script was ready, without traces and without
// the word that its init has returned.
Lines SaidSinceReady(const CService& service)
{
    Lines said;
    bool isReady = false;
    for (const std::string& record : service.Records())
    {
        const bool isOther =
            record.rfind("TRACE", 0) == 0 ||
            record == "MESSAGE kza: " + service.Name() + " is up";
        if (isReady && !isOther)
            said.push_back(record);
        isReady = isReady || record == "MESSAGE kza: " + kReady;
    }
    return said;
}

const std::string kExit =
    "INFO kza: Child process exited with status 0 (exit 0)";

// A service whose init or main reads from a fifo while the stop comes.
class StopWhileReading : public testing::TestWithParam<const char*>
{
protected:
    // Runs the Lua code as the named function, asks for the stop meanwhile, and
    // then writes a line into the fifo.
    void Run(const std::string& function, const std::string& code)
    {
        m_service.SetModule("local M = {}\n"
                            "function M.shutdown()\n"
                            "  dom:Log('message', 'shutdown runs')\n"
                            "end\n"
                            "function M." +
                            function + "()\n" + code +
                            "end\n"
                            "return M");
        std::filesystem::create_directories(m_service.Host().Work());
        const std::string fifo = m_service.Host().Work() + "/fifo";
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        ASSERT_TRUE(m_service.StartUntil(kReady, Traced()));
        // Opened for both ways, the writer waits for no reader.
        const int writer = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(writer, 0);
        ASSERT_TRUE(AskToStop(m_service));
        EXPECT_EQ(write(writer, "a line\n", 7), 7);
        EXPECT_TRUE(m_service.WaitUntilGone());
        close(writer);
    }

    [[nodiscard]] const CService& Service() const { return m_service; }

private:
    const CService m_service{"reading"};
};

TEST_P(StopWhileReading, AFileGivesWhatComes)
{
    Run(GetParam(), "  local file = io.open('fifo', 'r+')\n"
                    "  dom:Log('message', 'ready for the stop')\n"
                    "  dom:Log('message', 'read ' .. file:read())\n");
    const Lines expected = {"MESSAGE kza: read a line", kCaught, kShutdown,
                            kExit};
    EXPECT_EQ(SaidSinceReady(Service()), expected);
}

TEST_P(StopWhileReading, AProgramGivesWhatComes)
{
    Run(GetParam(), "  local pipe = io.popen('head -n 1 <>fifo')\n"
                    "  dom:Log('message', 'ready for the stop')\n"
                    "  dom:Log('message', 'read ' .. pipe:read())\n"
                    "  dom:Log('message', tostring(pipe:close()))\n");
    const Lines expected = {"MESSAGE kza: read a line", "MESSAGE kza: true",
                            kCaught, kShutdown, kExit};
    EXPECT_EQ(SaidSinceReady(Service()), expected);
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
    service.SetModule(kTimed + R"lua(
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
    ASSERT_TRUE(service.StartUntil(kReady, Traced()));
    ASSERT_TRUE(AskToStop(service));
    EXPECT_TRUE(service.WaitUntilGone());
    const Lines expected = {"MESSAGE kza: sleep false early",
                            "MESSAGE kza: sleep false in time",
                            "MESSAGE kza: wait false in time",
                            "MESSAGE kza: asked false",
                            "MESSAGE kza: wait false early",
                            kCaught,
                            "MESSAGE kza: sleep true in time",
                            "MESSAGE kza: wait true",
                            kExit};
    EXPECT_EQ(SaidSinceReady(service), expected);
}

TEST(StopRequest, CutsAWaitForAKey)
{
    const CService service("waiting");
    service.SetModule(kTimed + R"lua(
function M.main()
  log("ready for the stop")
  timed("wait", function() return dom:Wait("waiting.key", 600000) end, 600)
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
end
return M
)lua");
    ASSERT_TRUE(service.StartUntil(kReady, Traced()));
    ASSERT_TRUE(AskToStop(service));
    EXPECT_TRUE(service.WaitUntilGone());
    const Lines expected = {"MESSAGE kza: wait false early",
                            "MESSAGE kza: sleep false in time", kCaught, kExit};
    EXPECT_EQ(SaidSinceReady(service), expected);
}

// Work that is busy when the stop comes hears of it at its next wait.
TEST(StopRequest, CutsTheNextWaitOfABusyMain)
{
    const CService service("busy");
    service.SetModule(kTimed + R"lua(
function M.main()
  log("ready for the stop")
  repeat until io.open("go_on")
  timed("sleep", function() return dom:Sleep(600000) end, 600)
  timed("sleep", function() return dom:Sleep(200) end, 0.19)
end
return M
)lua");
    ASSERT_TRUE(service.StartUntil(kReady, Traced()));
    ASSERT_TRUE(AskToStop(service));
    WriteFile(service.Host().Work() + "/go_on", "");
    EXPECT_TRUE(service.WaitUntilGone());
    const Lines expected = {"MESSAGE kza: sleep false early",
                            "MESSAGE kza: sleep false in time", kCaught, kExit};
    EXPECT_EQ(SaidSinceReady(service), expected);
}

TEST(StopRequest, IsToldToMainAndNotToInit)
{
    const CService service("early");
    service.SetModule(kTimed + R"lua(
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
)lua");
    ASSERT_TRUE(service.StartUntil(kReady, Traced()));
    ASSERT_TRUE(AskToStop(service));
    WriteFile(service.Host().Work() + "/go_on", "");
    EXPECT_TRUE(service.WaitUntilGone());
    const Lines expected = {"MESSAGE kza: sleep true in time",
                            "MESSAGE kza: wait false",
                            "MESSAGE kza: wait true",
                            "MESSAGE kza: sleep false early",
                            kCaught,
                            kExit};
    EXPECT_EQ(SaidSinceReady(service), expected);
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
    service.SetModule("return { main = function()\n"
                      "  dom:Log('message', 'ready for the stop')\n"
                      "  repeat until io.open('go_on')\n"
                      "end }");
    CServiceOptions options = Traced();
    options.speed = 100;
    ASSERT_TRUE(service.StartUntil(kReady, options));
    ASSERT_TRUE(AskToStop(service));
    ASSERT_TRUE(service.WaitForLog("Stop requested ", 3));
    WriteFile(service.Host().Work() + "/go_on", "");
    EXPECT_TRUE(service.WaitUntilGone());

    Lines said = SaidSinceReady(service);
    ASSERT_GE(said.size(), 5U);
    EXPECT_EQ(said.back(), kExit);
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
    service.SetModule("return {\n"
                      "  main = function()\n"
                      "    dom:Log('message', 'ready for the stop')\n"
                      "    dom:Sleep(math.huge)\n"
                      "  end,\n"
                      "  shutdown = function()\n"
                      "    local start = os.time()\n"
                      "    repeat until os.time() - start >= 25\n"
                      "  end }");
    CServiceOptions options = Traced();
    options.speed = 100;
    ASSERT_TRUE(service.StartUntil(kReady, options));
    ASSERT_TRUE(AskToStop(service));
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_EQ(CountOf(service.Log(), "Stop requested"), 0);
    EXPECT_EQ(CountOf(service.Log(), "Child process exited with status 0"), 1);
}

} // namespace
