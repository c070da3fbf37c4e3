// SPDX-License-Identifier: Apache-2.0
//
// How the watchdog takes the end of its worker: what it says, whether and when
// it starts another, and with which status the service ends.

#include "e2e/service/Workers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

CServiceOptions NoCores()
{
    CServiceOptions options;
    options.process.inChild = []
    {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
    };
    return options;
}

TEST(Watchdog, WorkersStatusEndsTheService)
{
    for (const int status : {1, 255})
    {
        SCOPED_TRACE(status);
        const CService service;
        service.SetModule(EndsWhenTold(status));
        ASSERT_TRUE(service.StartUntil(kRuns));
        const pid_t watchdog = service.PidFromFile();
        Tell(service);
        EXPECT_EQ(CService::StatusOf(watchdog), status);

        const Lines expected = {kStarting,           kUp,
                                kWorkerRuns,         Exited(status),
                                ServiceEnds(status), kExiting};
        EXPECT_EQ(Said(service), expected);
        EXPECT_TRUE(fs::is_empty(service.RunDir()));
    }
}

TEST(Watchdog, CleanShutdownIsNotRestarted)
{
    const CService service;
    service.SetModule(Worker(""));
    ASSERT_TRUE(service.StartUntil(kRuns));
    const pid_t watchdog = service.PidFromFile();
    kill(service.Worker(), SIGTERM);
    EXPECT_EQ(CService::StatusOf(watchdog), 0);
    const Lines expected = {kStarting, kUp,       kWorkerRuns,
                            kCaught,   Exited(0), kExiting};
    EXPECT_EQ(Said(service), expected);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

TEST(Watchdog, EachWorkersStartIsSaidUnderEveryName)
{
    const CService service("other");
    service.SetModule(EndsAtFirst(3));
    ASSERT_TRUE(service.StartUntil("Delaying 1000ms"));
    ASSERT_TRUE(service.WaitForLog(kRuns, 2));
    const std::string second =
        "INFO kza: Worker " + std::to_string(service.Worker()) + " started\n";
    EXPECT_TRUE(service.WaitForLog(second));
    EXPECT_TRUE(service.WaitForLog(" started\n", 2));
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(CountOf(service.Log(), "INFO kza: Worker "), 2);
    EXPECT_EQ(CountOf(service.Log(), "The service ends"), 0);
}

TEST(Watchdog, NoRunTimeIsReportedUnderAnotherName)
{
    const CService service("other");
    service.SetModule(Ends(7));
    ASSERT_TRUE(service.StartUntil(kRuns));
    ASSERT_TRUE(service.WaitUntilGone());
    const Lines expected = {"MESSAGE kza: other is up", kWorkerRuns, Exited(7),
                            ServiceEnds(7)};
    EXPECT_EQ(Said(service), expected);
}

TEST(Watchdog, SignalsOtherThanSigtermMeanARestart)
{
    const struct
    {
        int signal;
        const char* said;
    } table[] = {
        {SIGSEGV, "ERROR kza: Child process crashed with status 11 "
                  "(signal 11: Segmentation fault)"},
        {SIGKILL, "INFO kza: Child process exited with status 9 "
                  "(signal 9: Killed)"},
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.said);
        const CService service("signalled");
        service.SetModule(Worker(""));
        ASSERT_TRUE(service.StartUntil(kRuns, NoCores()));
        const pid_t first = service.Worker();
        kill(first, row.signal);
        ASSERT_TRUE(service.WaitForLog(kRuns, 2));
        EXPECT_NE(service.Worker(), first);
        EXPECT_TRUE(service.Stop());
        const Lines said = Said(service);
        EXPECT_EQ(std::count(said.begin(), said.end(), row.said), 1)
            << service.Log();
    }
}

struct CDriver
{
    const char* name;
    const char* script; ///< null when there is none
    mode_t mode;
    const char* said;   ///< null for nothing
    const char* called; ///< what the script left
};

class DriverStop : public testing::TestWithParam<CDriver>
{
};

TEST_P(DriverStop, ExitCode3RestartsTheWorker)
{
    const CDriver& driver = GetParam();
    const CService service;
    service.SetModule(EndsAtFirst(3));
    if (driver.script != nullptr)
    {
        WriteFile(service.DriverScript(), driver.script);
        chmod(service.DriverScript().c_str(), driver.mode);
    }
    ASSERT_TRUE(service.StartUntil("Delaying 1000ms"));
    ASSERT_TRUE(service.WaitForLog(kRuns, 2));
    EXPECT_TRUE(service.Stop());

    Lines expected = {kStarting, kUp, kWorkerRuns, Exited(3)};
    if (driver.said != nullptr)
        expected.emplace_back(driver.said);
    expected.push_back(Delaying(1000, 1));
    expected.push_back(kUp);
    expected.push_back(kWorkerRuns);
    Lines said = Said(service);
    said.resize(expected.size());
    EXPECT_EQ(said, expected);
    EXPECT_EQ(ReadFile(service.Host().Work() + "/called"), driver.called);
}

const CDriver kDrivers[] = {
    {"Absent", nullptr, 0, nullptr, ""},
    {"NotExecutable", "#!/bin/sh\necho $# $* >>called\n", 0600, nullptr, ""},
    {"Present", "#!/bin/sh\necho $# $* >>called\n", 0700,
     "MESSAGE kza: Driver stopped using /opt/kz_agent/SunOS.init",
     "1 stopmod\n"},
    {"Failing", "#!/bin/sh\necho $# $* >>called\nexit 7\n", 0700,
     "ERROR kza: Error stopping driver: exit status 7", "1 stopmod\n"},
    {"Killed", "#!/bin/sh\necho $# $* >>called\nkill -9 $$\n", 0700,
     "ERROR kza: Error stopping driver: killed by signal 9", "1 stopmod\n"},
    {"Broken", "#!/no/such/interpreter\n", 0700,
     "ERROR kza: Error stopping driver: No such file or directory", ""},
};

INSTANTIATE_TEST_SUITE_P(Watchdog,
                         DriverStop,
                         testing::ValuesIn(kDrivers),
                         [](const auto& test)
                         { return std::string(test.param.name); });

TEST(Watchdog, DriverScriptHasACleanSignalState)
{
    const CService service;
    service.SetModule(EndsAtFirst(3));
    WriteFile(service.DriverScript(),
              "#!/bin/sh\ncat /proc/self/status >status; ls /proc/self/fd "
              ">fds\n");
    chmod(service.DriverScript().c_str(), 0700);
    ASSERT_TRUE(service.StartUntil("Driver stopped"));
    const std::string status = ReadFile(service.Host().Work() + "/status");
    EXPECT_NE(status.find("SigBlk:\t0000000000000000\n"), std::string::npos);
    // 3 is the directory that ls reads, and its own output is 1.
    EXPECT_EQ(ReadFile(service.Host().Work() + "/fds"), "0\n1\n2\n3\n");
}

TEST(Watchdog, FirstDelaysLastOneAndTwoSeconds)
{
    const CService service("delays");
    service.SetModule(EndsAtFirst(3, 2));
    ASSERT_TRUE(service.StartUntil("Delaying 1000ms before restart 1"));
    ASSERT_TRUE(service.WaitForLog("Delaying 2000ms before restart 2"));
    std::vector<std::string> lives;
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            lives = ReadLines(service.Host().Work() + "/lives");
            return lives.size() == 3;
        }));
    // The uptime comes in hundredths.
    EXPECT_GT(std::stod(lives[1]) - std::stod(lives[0]), 0.98);
    EXPECT_GT(std::stod(lives[2]) - std::stod(lives[1]), 1.98);
    EXPECT_TRUE(service.Stop());
}

// Seconds since midnight of a log line's time stamp.
int SecondsIn(const std::string& line)
{
    tm time = {};
    if (strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &time) == nullptr)
        return -1;
    return (time.tm_hour * 60 + time.tm_min) * 60 + time.tm_sec;
}

// The seconds, of the service's clock, between each line of one kind and the
// first of the other kind after it.
std::vector<int> SecondsBetween(const CService& service,
                                const char* from,
                                const char* to)
{
    std::vector<int> times;
    int start = -1;
    const std::string log =
        service.Host().File("work/log/" + service.Name() + ".log");
    for (const std::string& line : ReadLines(log))
        if (line.find(from) != std::string::npos)
            start = SecondsIn(line);
        else if (start >= 0 && line.find(to) != std::string::npos)
        {
            times.push_back((SecondsIn(line) - start + 86400) % 86400);
            start = -1;
        }
    return times;
}

TEST(Watchdog, NinthStartEndsTheService)
{
    const CService service;
    service.SetModule(Ends(3));
    CServiceOptions options;
    // No faster: eight starts have to fit into 512 seconds of this clock on a
    // busy machine too.
    options.speed = 20;
    ASSERT_TRUE(service.StartUntil("Delaying 4000ms", options));
    const pid_t watchdog = service.PidFromFile();
    EXPECT_EQ(CService::StatusOf(watchdog), 255);

    Lines expected = {kStarting};
    for (int start = 1; start <= 8; ++start)
    {
        if (start > 1)
            expected.push_back(Delaying(1000 << (start - 2), start - 1));
        expected.push_back(kUp);
        expected.push_back(kWorkerRuns);
        expected.push_back(Exited(3));
    }
    expected.emplace_back(
        "ERROR kza: Too many restarts in too short of a time, exiting (8 "
        "restarts in less than 512 seconds)");
    expected.push_back(ServiceEnds(255));
    expected.push_back(kExiting);
    EXPECT_EQ(Said(service), expected);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));

    // By the service's own clock, whose seconds are 50 ms long here; a worker
    // takes some of them to reach its first line.
    const std::vector<int> waited = SecondsBetween(service, "Delaying", kRuns);
    ASSERT_EQ(waited.size(), 7U);
    for (int i = 0; i < 7; ++i)
        EXPECT_GE(waited[static_cast<size_t>(i)], (1 << i) - 1);
}

TEST(Watchdog, StartsOlderThanThePeriodDoNotCount)
{
    const CService service;
    // Looks at the clock that the watchdog looks at: a worker may take longer,
    // never less. An accelerated clock does not carry over to dom:Sleep.
    service.SetModule(Worker("local start = os.time()\n"
                             "repeat until os.time() - start >= 600\n"
                             "return 3"));
    CServiceOptions options;
    options.speed = 10000;
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    ASSERT_TRUE(service.WaitForLog(kRuns, 12));
    EXPECT_EQ(CountOf(service.Log(), "Delaying"), 0);
}

TEST(Watchdog, WorkerThatCannotBeForkedEndsTheService)
{
    const CService service;
    service.SetModule(Ends(0));
    CServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_FAIL_FORK", "3"}};
    ASSERT_TRUE(service.StartUntil(kExiting, options));
    EXPECT_TRUE(service.WaitUntilGone());
    const Lines expected = {kStarting,
                            "ERROR kza: Unable to fork child (error 11: "
                            "Resource temporarily unavailable)",
                            ServiceEnds(255), kExiting};
    EXPECT_EQ(Said(service), expected);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

// The signal mask of a thread as /proc shows it.
std::string Blocked(pid_t pid, pid_t thread)
{
    const std::string status =
        ReadFile("/proc/" + std::to_string(pid) + "/task/" +
                 std::to_string(thread) + "/status");
    const std::size_t at = status.find("SigBlk:\t");
    return at == std::string::npos ? "" : status.substr(at + 8, 16);
}

// The youngest thread. The main thread and a thread of a sanitizer are older.
pid_t ScriptThread(pid_t worker)
{
    pid_t youngest = 0;
    for (const fs::directory_entry& entry :
         fs::directory_iterator("/proc/" + std::to_string(worker) + "/task"))
        youngest = std::max(youngest, PidIn(entry.path().filename()));
    return youngest;
}

// Its workers are forked without exec: a lock that another thread held would
// stay locked in them.
TEST(Watchdog, HasOneThread)
{
    const CService service;
    service.SetModule(Worker(""));
    ASSERT_TRUE(service.StartUntil(kRuns));
    const fs::path threads =
        "/proc/" + std::to_string(service.PidFromFile()) + "/task";
    // The thread sanitizer has a thread of its own in every process.
    const int allowed = std::string(KZA_SANITIZE) == "thread" ? 2 : 1;
    EXPECT_LE(std::distance(fs::directory_iterator(threads), {}), allowed);
    EXPECT_TRUE(service.Stop());
}

// Looks while the script is in its main: later sigwait() unblocks SIGTERM.
TEST(Watchdog, FirstWorkerBlocksSigtermAndLaterOnesSigchldToo)
{
    const CService service;
    service.SetModule(EndsWhenTold(0));
    ASSERT_TRUE(service.StartUntil(kRuns));
    const pid_t watchdog = service.PidFromFile();
    const pid_t first = service.Worker();
    EXPECT_EQ(Blocked(watchdog, watchdog), "0000000000010000"); // SIGCHLD
    EXPECT_EQ(Blocked(first, first), "0000000000004000");       // SIGTERM
    EXPECT_EQ(Blocked(first, ScriptThread(first)), "0000000000004002");

    kill(first, SIGKILL);
    ASSERT_TRUE(service.WaitForLog(kRuns, 2));
    const pid_t second = service.Worker();
    EXPECT_EQ(Blocked(second, second), "0000000000014000");
    EXPECT_EQ(Blocked(second, ScriptThread(second)), "0000000000014002");
}

// The calls about signals that the preloaded library noted for a process.
Lines NotedBy(pid_t pid, const std::string& path)
{
    const std::string mark = std::to_string(pid) + " ";
    Lines noted;
    for (const std::string& line : ReadLines(path))
        if (line.rfind(mark, 0) == 0)
            noted.push_back(line.substr(mark.size()));
    return noted;
}

// True when the lines occur in a row.
bool Contains(const Lines& all, const Lines& part)
{
    return std::search(all.begin(), all.end(), part.begin(), part.end()) !=
           all.end();
}

TEST(Watchdog, DispositionsAreInstalledInOrder)
{
    const CService service;
    service.SetModule(Worker(""));
    CServiceOptions options;
    options.withFaults = true;
    const std::string noted = service.Host().File("signals");
    options.process.env = {{"KZA_SIGNAL_LOG", noted}};
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    const pid_t worker = service.Worker();
    EXPECT_TRUE(service.Stop());

    const std::string wakeUp = std::to_string(SIGRTMIN + 5);
    const Lines ofWorker = {"sigaction 2 handler flags 10000000 mask 0",
                            "sigaction 15 handler flags 10000000 mask 0",
                            "sigaction 10 handler flags 10000000 mask 0",
                            "sigaction 12 handler flags 10000000 mask 0",
                            "sigaction " + wakeUp + " handler flags 0 mask 0",
                            "sigaction 1 ignore flags 10000000 mask 0",
                            "block 2",
                            "block 15",
                            "sigaction 14 handler flags 0 mask 0",
                            "sigaction 13 ignore flags 10000000 mask 0"};
    EXPECT_TRUE(Contains(NotedBy(worker, noted), ofWorker)) << ReadFile(noted);

    // Each of the first two handlers blocks the other's signal as well.
    const Lines ofWatchdog = {"sigaction 15 handler flags 4 mask 2",
                              "sigaction 2 handler flags 4 mask 2",
                              "sigaction 1 ignore flags 0 mask 0",
                              "sigaction 13 ignore flags 0 mask 0",
                              "sigaction 10 ignore flags 0 mask 0",
                              "sigaction 12 ignore flags 0 mask 0",
                              "sigaction 14 ignore flags 0 mask 0"};
    EXPECT_TRUE(Contains(NotedBy(watchdog, noted), ofWatchdog))
        << ReadFile(noted);
}

} // namespace
