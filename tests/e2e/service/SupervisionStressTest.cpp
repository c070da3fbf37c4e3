// SPDX-License-Identifier: Apache-2.0
//
// The watchdog under stress: many deaths, what dying workers leave behind, no
// room for the log, stop requests at bad moments.

#include "e2e/service/WaitingService.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include <sys/resource.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// The same numbers in every run, so that a failure can be repeated.
std::mt19937 Random(std::uint32_t seed)
{
    return std::mt19937(seed);
}

// The first worker other than `previous`, 0 when none comes.
pid_t NextWorker(const CService& service, pid_t previous)
{
    pid_t worker = 0;
    const bool came = WaitUntil(
        [&]
        {
            worker = service.Worker();
            return worker != 0 && worker != previous;
        });
    return came ? worker : 0;
}

std::set<std::string> Descriptors(pid_t pid)
{
    std::set<std::string> found;
    for (const fs::directory_entry& entry :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
        found.insert(entry.path().filename().string() + " " +
                     fs::read_symlink(entry).string());
    return found;
}

// Memory that the process has written to, shared with its worker or not.
long WrittenKiB(pid_t pid)
{
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string word; rollup >> word;)
        if (word == "Anonymous:")
        {
            long size = 0;
            rollup >> size;
            return size;
        }
    return -1;
}

// The children of a process, zombies too.
int ChildrenOf(pid_t parent)
{
    int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc"))
        if (const pid_t pid = PidIn(entry.path().filename()))
            count += ProcessInfo(pid).parent == parent ? 1 : 0;
    return count;
}

// Kills the worker at any moment of its life, not more often than the policy
// allows: a second of the service's clock is a millisecond here, and 70 of
// them between two deaths keep eight starts out of any 512.
void KillWorkers(const CService& service, int times, std::mt19937& random)
{
    std::uniform_int_distribution<int> pause(70, 130);
    pid_t worker = 0;
    for (int i = 0; i < times; ++i)
    {
        std::this_thread::sleep_for(milliseconds(pause(random)));
        worker = NextWorker(service, worker);
        ASSERT_NE(worker, 0) << "after " << i << " deaths";
        kill(worker, SIGKILL);
    }
}

TEST(SupervisionStress, HundredDeathsLeaveNothingBehind)
{
    const CService service("mortal");
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.speed = 1000;
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    const pid_t watchdog = service.PidFromFile();

    std::mt19937 random = Random(1);
    KillWorkers(service, 20, random);
    const std::set<std::string> descriptors = Descriptors(watchdog);
    const long memory = WrittenKiB(watchdog);
    KillWorkers(service, 80, random);

    EXPECT_TRUE(service.WaitForLog("(signal 9: Killed)", 100));
    EXPECT_EQ(Descriptors(watchdog), descriptors);
    // A sanitizer keeps freed memory.
    const bool exact = std::string(KZA_SANITIZE).empty();
    EXPECT_LE(WrittenKiB(watchdog), memory + (exact ? 16 : 4096));
    ASSERT_TRUE(WaitUntil([&] { return service.Worker() != 0; }));
    EXPECT_EQ(ChildrenOf(watchdog), 1);
    EXPECT_TRUE(service.WaitUntilDetached());
    EXPECT_EQ(CountOf(service.Log(), "Too many restarts"), 0);

    // The watchdog may be in its back-off, where the first request does not end
    // it.
    kill(watchdog, SIGTERM);
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            if (CountOf(service.Log(), "interrupted") == 0)
                kill(watchdog, SIGTERM);
            return service.Processes().empty();
        }));
}

TEST(SupervisionStress, ChildrenOfADeadWorkerAreToldAtTheStop)
{
    const CService service("parents");
    service.SetModule("return { main = function()\n"
                      "  for i = 1, 3 do\n"
                      "    os.execute('sleep 1000 & echo $! >>children')\n"
                      "  end\n"
                      "  require('mainloop').wait()\n"
                      "  dom:Log('message', 'main runs')\n"
                      "end }");
    ASSERT_TRUE(service.StartUntil(kMainRuns));
    const pid_t watchdog = service.PidFromFile();
    kill(service.Worker(), SIGKILL);
    ASSERT_TRUE(service.WaitForLog(kMainRuns, 2));

    const std::vector<std::string> children =
        ReadLines(service.Host().Work() + "/children");
    ASSERT_EQ(children.size(), 6U);
    EXPECT_EQ(ChildrenOf(watchdog), 1);
    for (const std::string& child : children)
        EXPECT_TRUE(IsRunning(PidIn(child)));
    EXPECT_TRUE(service.Stop());
    for (const std::string& child : children)
        EXPECT_TRUE(WaitUntil([&] { return !IsRunning(PidIn(child)); }));
}

TEST(SupervisionStress, FullLogDiskStopsNothing)
{
    const CService service("full");
    service.SetModule(kWaitingMain);
    const std::string log = service.LogDir();
    CServiceOptions options;
    options.process.inChild = [log]
    {
        MountTmpfs(log, "16k");
        const std::string filler(16384, 'x');
        std::ofstream(log + "/filler") << filler;
    };
    EXPECT_EQ(service.Start(options).status, 0);
    const pid_t first = NextWorker(service, 0);
    ASSERT_NE(first, 0);
    const pid_t watchdog = ProcessInfo(first).parent;
    EXPECT_EQ(service.PidFromFile(), watchdog);

    kill(first, SIGSEGV);
    const pid_t second = NextWorker(service, first);
    ASSERT_NE(second, 0);
    EXPECT_EQ(ProcessInfo(second).parent, watchdog);

    // Once there is room, the next record is written.
    const std::string seen =
        "/proc/" + std::to_string(watchdog) + "/root" + log;
    fs::remove(seen + "/filler");
    kill(second, SIGSEGV);
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            return CountOf(ReadFile(seen + "/full.log"),
                           "Child process crashed with status") == 1;
        }));
    EXPECT_TRUE(NextWorker(service, second) != 0);
    EXPECT_TRUE(service.Stop());
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

// SIGXFSZ, which comes with the limit, would kill the worker that logs, and
// then the watchdog that logs the worker's end.
TEST(SupervisionStress, FullLogFileStopsNothing)
{
    const CService service("limited");
    service.SetModule("return { main = function()\n"
                      "  for i = 1, 1000 do\n"
                      "    dom:Log('message', ('x'):rep(100))\n"
                      "  end\n"
                      "  local file = io.open('lives', 'a')\n"
                      "  file:write('x')\n"
                      "  file:close()\n"
                      "end }");
    CServiceOptions options;
    options.process.inChild = []
    {
        const rlimit limit{32768, 32768};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    EXPECT_EQ(service.Start(options).status, 0);
    const std::string lives = service.Host().Work() + "/lives";
    ASSERT_TRUE(WaitUntil([&] { return ReadFile(lives) == "x"; }));
    const pid_t watchdog = service.PidFromFile();
    kill(service.Worker(), SIGKILL);
    ASSERT_TRUE(WaitUntil([&] { return ReadFile(lives) == "xx"; }));
    EXPECT_EQ(ProcessInfo(service.Worker()).parent, watchdog);
    EXPECT_TRUE(service.Stop());
}

// The thread sanitizer holds a signal back that comes right before waitpid(),
// until that returns, which only another signal makes it do. Elsewhere a
// process that waits has run its handlers, and the first of them removes the
// pid file.
void SendAgainWhereHeldBack(const CService& service, pid_t watchdog)
{
    const bool holdsBack = std::string(KZA_SANITIZE) == "thread";
    const std::string waits =
        ReadFile("/proc/" + std::to_string(watchdog) + "/wchan");
    if (holdsBack && waits == "do_wait" && FileExists(service.PidFile()))
        kill(watchdog, SIGTERM);
}

// A stop request at any moment from when the pid file can be read leaves no
// process behind.
TEST(SupervisionStress, StopRightAfterTheStartLeavesNoProcess)
{
    std::mt19937 random = Random(2);
    std::uniform_int_distribution<int> pause(0, 5000);
    const CService service("hasty");
    service.SetModule(kWaitingMain);
    for (int i = 0; i < 60; ++i)
    {
        SCOPED_TRACE(i);
        ASSERT_EQ(service.Start().status, 0);
        ASSERT_TRUE(WaitUntil([&] { return service.PidFromFile() != 0; }));
        const pid_t watchdog = service.PidFromFile();
        std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
        kill(watchdog, SIGTERM);
        ASSERT_TRUE(WaitUntil(
            [&]
            {
                SendAgainWhereHeldBack(service, watchdog);
                return service.Processes().empty();
            }));
        // A request that comes before the relay is installed ends the watchdog
        // at once, and its pid file stays.
        fs::remove(service.PidFile());
    }
}

} // namespace
