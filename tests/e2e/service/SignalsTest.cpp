// SPDX-License-Identifier: Apache-2.0
//
// Stopping the service, and what other signals do to it.

#include "e2e/service/Workers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// A service whose functions say when they run and end. While a file
// `<function>_waits` is there, the function waits for a file
// `<function>_may_end`; a stop request does not end that wait.
constexpr char kPhases[] = R"lua(
local function exists(name)
  local file = io.open(name)
  if file then file:close() end
  return file ~= nil
end
local function phase(name)
  return function()
    require("mainloop").wait()
    dom:Log("message", name .. " runs")
    if exists(name .. "_waits") then
      while not exists(name .. "_may_end") do
        os.execute("sleep 0.01")
      end
    end
    dom:Log("message", name .. " ends")
    return name == "shutdown" and 5 or 0
  end
end
return { init = phase("init"), main = phase("main"),
         shutdown = phase("shutdown") }
)lua";

class CPhases
{
public:
    CPhases() : m_service("phases")
    {
        m_service.SetModule(kPhases);
        fs::create_directories(m_service.Host().Work());
    }

    [[nodiscard]] const CService& Service() const { return m_service; }
    [[nodiscard]] pid_t Watchdog() const { return m_watchdog; }

    void Hold(const std::string& phase) const { Write(phase + "_waits"); }
    void LetEnd(const std::string& phase) const { Write(phase + "_may_end"); }

    [[nodiscard]] bool StartUntil(const std::string& text,
                                  const CServiceOptions& options = {})
    {
        const bool started = m_service.StartUntil(text, options);
        m_watchdog = m_service.PidFromFile();
        return started && WaitUntilWatchdogWaits();
    }

    // The records of the log from the one with the text on.
    [[nodiscard]] Lines SaidFrom(const std::string& text) const
    {
        Lines said;
        for (const std::string& record : m_service.Records())
            if (!said.empty() || record.find(text) != std::string::npos)
                said.push_back(record);
        return said;
    }

private:
    // The watchdog's last record before it waits is that the worker has
    // started. A signal between that record and the wait would be relayed
    // without the record of an interrupted wait.
    [[nodiscard]] bool WaitUntilWatchdogWaits() const
    {
        return m_service.WaitForLog(" started\n") &&
               WaitUntil([this]
                         { return ProcessInfo(m_watchdog).state == 'S'; });
    }

    void Write(const std::string& name) const
    {
        WriteFile(m_service.Host().Work() + "/" + name, "");
    }

    CService m_service;
    pid_t m_watchdog = 0;
};

bool IsIn(const Lines& lines, const std::string& line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// Whether a signal is pending for a process.
bool IsPending(pid_t pid, int signal)
{
    const std::string status =
        ReadFile("/proc/" + std::to_string(pid) + "/status");
    const std::size_t at = status.find("ShdPnd:\t");
    return at != std::string::npos &&
           ((strtoul(&status[at + 8], nullptr, 16) >> (signal - 1)) & 1U) != 0;
}

TEST(Stop, PidFileGoesAtOnceAndTheWorkersStatusEndsTheService)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    ASSERT_TRUE(phases.StartUntil("main ends"));
    kill(phases.Watchdog(), SIGTERM);
    ASSERT_TRUE(service.WaitForLog("shutdown runs"));
    EXPECT_TRUE(WaitUntil([&] { return !FileExists(service.PidFile()); }));
    EXPECT_TRUE(service.WaitUntilDetached());

    phases.LetEnd("shutdown");
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 5);
    const Lines said = phases.SaidFrom("main ends");
    ASSERT_EQ(said.size(), 7U) << service.Log();
    EXPECT_TRUE(IsIn(said, kCaught));
    EXPECT_TRUE(IsIn(said, kInterrupted));
    EXPECT_EQ(said[5], Exited(5));
    EXPECT_EQ(said[6], ServiceEnds(5));
    EXPECT_TRUE(service.WaitUntilGone());
}

class StopDuring : public testing::TestWithParam<const char*>
{
};

// The request stays pending in the worker until its script thread waits for the
// signal.
TEST_P(StopDuring, ThePhaseIsFinishedFirst)
{
    const std::string phase = GetParam();
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold(phase);
    ASSERT_TRUE(phases.StartUntil(phase + " runs"));
    const pid_t worker = service.Worker();
    kill(phases.Watchdog(), SIGTERM);
    ASSERT_TRUE(service.WaitForLog("interrupted - Try again"));
    EXPECT_FALSE(FileExists(service.PidFile()));
    EXPECT_TRUE(WaitUntil([&] { return IsPending(worker, SIGTERM); }));

    phases.LetEnd(phase);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 5);
    const Lines expected = {
        "MESSAGE kza: main ends",     kCaught,   "MESSAGE kza: shutdown runs",
        "MESSAGE kza: shutdown ends", Exited(5), ServiceEnds(5),
    };
    EXPECT_EQ(phases.SaidFrom("main ends"), expected);
}

INSTANTIATE_TEST_SUITE_P(Stop,
                         StopDuring,
                         testing::Values("init", "main"),
                         [](const auto& test)
                         { return std::string(test.param); });

// The worker alone was asked to stop before. The request that the watchdog
// relays stays pending until shutdown has ended, and then ends the process.
TEST(Stop, DuringShutdownItEndsTheWorkerWithZero)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    ASSERT_TRUE(phases.StartUntil("main ends"));
    const pid_t worker = service.Worker();
    kill(worker, SIGTERM);
    ASSERT_TRUE(service.WaitForLog("shutdown runs"));
    kill(phases.Watchdog(), SIGTERM);
    ASSERT_TRUE(WaitUntil([&] { return IsPending(worker, SIGTERM); }));

    phases.LetEnd("shutdown");
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);
    EXPECT_EQ(phases.SaidFrom("shutdown ends").back(), Exited(0));
}

TEST(Stop, SecondRequestEndsTheWatchdogAndLeavesTheWorker)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    ASSERT_TRUE(phases.StartUntil("main ends"));
    const pid_t worker = service.Worker();
    kill(phases.Watchdog(), SIGTERM);
    ASSERT_TRUE(service.WaitForLog("shutdown runs"));
    ASSERT_TRUE(service.WaitForLog("interrupted - Try again"));
    kill(phases.Watchdog(), SIGTERM);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);

    // The group was told again, and the worker finishes alone.
    EXPECT_TRUE(IsPending(worker, SIGTERM));
    EXPECT_TRUE(WaitUntil(
        [&] { return service.Processes() == std::vector<pid_t>{worker}; }));
    EXPECT_EQ(CountOf(service.Log(), "Child process"), 0);
    phases.LetEnd("shutdown");
    EXPECT_EQ(CService::StatusOf(worker), 0);
    EXPECT_EQ(CountOf(service.Log(), "shutdown ends"), 1);
}

// The handler leaves by exit(), whose at-exit functions look at the log. It
// must not interrupt a write of the log, whose lock its own thread would hold.
TEST(Stop, SecondRequestDuringALogWriteEndsTheWatchdogAfterIt)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    const std::string goOn = service.Host().File("go-on");
    CServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_HOLD", "write"}, {"KZA_HOLD_FILE", goOn}};
    ASSERT_TRUE(phases.StartUntil("main ends", options));
    kill(phases.Watchdog(), SIGTERM);
    ASSERT_TRUE(WaitUntil([&] { return FileExists(goOn + ".held"); }));

    kill(phases.Watchdog(), SIGTERM);
    EXPECT_TRUE(IsPending(phases.Watchdog(), SIGTERM));
    WriteFile(goOn, "");
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);
    EXPECT_EQ(CountOf(service.Log(), "interrupted - Try again"), 1);
    phases.LetEnd("shutdown");
    EXPECT_TRUE(service.WaitUntilGone());
}

// A worker that went on would run beside that of the next service.
TEST(Stop, WorkerWhoseWatchdogIsKilledStopsInOrder)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    const pid_t worker = service.Worker();
    kill(phases.Watchdog(), SIGKILL);
    EXPECT_EQ(CService::StatusOf(worker), 5);
    const Lines expected = {"MESSAGE kza: main ends", kCaught,
                            "MESSAGE kza: shutdown runs",
                            "MESSAGE kza: shutdown ends"};
    EXPECT_EQ(phases.SaidFrom("main ends"), expected);
}

TEST(Stop, DuringTheBackOffOnlyASecondRequestEndsTheService)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    kill(service.Worker(), SIGKILL);
    ASSERT_TRUE(service.WaitForLog("main ends", 2));
    kill(service.Worker(), SIGKILL);
    ASSERT_TRUE(service.WaitForLog("Delaying 2000ms"));

    kill(phases.Watchdog(), SIGTERM);
    EXPECT_TRUE(WaitUntil([&] { return !FileExists(service.PidFile()); }));
    EXPECT_EQ(CountOf(service.Log(), "init runs"), 2) << "the wait was cut";
    ASSERT_TRUE(service.WaitForLog("main ends", 3));
    EXPECT_TRUE(IsRunning(phases.Watchdog()));

    kill(phases.Watchdog(), SIGTERM);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);
    EXPECT_TRUE(service.WaitForLog("shutdown ends"));
    EXPECT_TRUE(service.WaitUntilGone());
}

TEST(Stop, WhatTheWorkerStartedIsToldToo)
{
    const CService service("family");
    service.SetModule("return { main = function()\n"
                      "  os.execute('sleep 1000 & echo $! >child')\n"
                      "  require('mainloop').wait()\n"
                      "  dom:Log('message', 'main ends')\n"
                      "end }");
    ASSERT_TRUE(service.StartUntil("main ends"));
    const pid_t child = PidIn(ReadFile(service.Host().Work() + "/child"));
    ASSERT_TRUE(IsRunning(child));
    EXPECT_TRUE(service.Stop());
    EXPECT_TRUE(WaitUntil([&] { return !IsRunning(child); }));
}

TEST(Stop, NextAgentMayStartDuringTheShutdownAndKeepsItsPidFile)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    ASSERT_TRUE(phases.StartUntil("main ends"));
    const pid_t first = phases.Watchdog();
    kill(first, SIGTERM);
    ASSERT_TRUE(service.WaitForLog("shutdown runs"));
    ASSERT_TRUE(WaitUntil([&] { return !FileExists(service.PidFile()); }));
    EXPECT_EQ(service.Start().status, 0);
    ASSERT_TRUE(service.WaitForLog("main ends", 2));
    const std::string content = ReadFile(service.PidFile());

    phases.LetEnd("shutdown");
    EXPECT_EQ(CService::StatusOf(first), 5);
    EXPECT_EQ(ReadFile(service.PidFile()), content);
    EXPECT_TRUE(service.Stop());
}

TEST(Signals, TheWorkerTakesTheseWithoutEffect)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    const pid_t worker = service.Worker();
    for (const int signal :
         {SIGUSR1, SIGUSR2, SIGHUP, SIGALRM, SIGPIPE, SIGRTMIN + 5})
        kill(worker, signal);
    EXPECT_TRUE(service.Stop());
    const Lines expected = {"MESSAGE kza: shutdown runs",
                            "MESSAGE kza: shutdown ends"};
    Lines said = phases.SaidFrom("shutdown runs");
    said.resize(2);
    EXPECT_EQ(said, expected);
    EXPECT_EQ(CountOf(service.Log(), "init runs"), 1) << "it was restarted";
}

TEST(Signals, TheWatchdogTakesTheseWithoutEffect)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    for (const int signal : {SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2, SIGALRM})
        kill(phases.Watchdog(), signal);
    kill(phases.Watchdog(), SIGTERM);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 5);
    EXPECT_EQ(CountOf(service.Log(), "init runs"), 1);
}

TEST(Signals, SigintToTheWatchdogStopsTheServiceInOrder)
{
    CPhases phases;
    const CService& service = phases.Service();
    phases.Hold("shutdown");
    ASSERT_TRUE(phases.StartUntil("main ends"));
    kill(phases.Watchdog(), SIGINT);
    ASSERT_TRUE(service.WaitForLog("shutdown runs"));
    EXPECT_TRUE(WaitUntil([&] { return !FileExists(service.PidFile()); }));
    phases.LetEnd("shutdown");
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 5);
    const Lines said = phases.SaidFrom("main ends");
    EXPECT_TRUE(IsIn(said, kCaught));
    EXPECT_TRUE(IsIn(said, kInterrupted));
}

// The second worker, which the watchdog forks with its own signals installed.
TEST(Signals, SigintEndsALaterWorkerAsItEndsTheFirst)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    kill(service.Worker(), SIGKILL);
    ASSERT_TRUE(service.WaitForLog("main ends", 2));
    kill(service.Worker(), SIGINT);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);
    EXPECT_EQ(CountOf(service.Log(), "shutdown runs"), 0);
}

TEST(Signals, SigintEndsTheWorkerAtOnceAndTheServiceWithZero)
{
    CPhases phases;
    const CService& service = phases.Service();
    ASSERT_TRUE(phases.StartUntil("main ends"));
    kill(service.Worker(), SIGINT);
    EXPECT_EQ(CService::StatusOf(phases.Watchdog()), 0);
    const Lines expected = {"MESSAGE kza: main ends", Exited(0)};
    EXPECT_EQ(phases.SaidFrom("main ends"), expected);
}

} // namespace
