// SPDX-License-Identifier: Apache-2.0
//
// Leaving the terminal, the pid file, and one agent of a name at most.

#include "e2e/service/WaitingService.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>

#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// True when an entry of a process in /proc leads to the file. The link's text
// is another one when the test runs in a chroot.
bool LeadsTo(pid_t pid, const std::string& name, const std::string& file)
{
    const std::string link = "/proc/" + std::to_string(pid) + "/" + name;
    struct stat there = {};
    struct stat here = {};
    return stat(link.c_str(), &there) == 0 && stat(file.c_str(), &here) == 0 &&
           there.st_dev == here.st_dev && there.st_ino == here.st_ino;
}

// The records of the log that contain a text.
std::vector<std::string> Records(const CService& service,
                                 const std::string& containing)
{
    std::vector<std::string> found;
    for (const std::string& record : service.Records())
        if (record.find(containing) != std::string::npos)
            found.push_back(record);
    return found;
}

TEST(Daemon, LauncherEndsWithZeroAndSaysNothing)
{
    const CService service;
    service.SetModule(kWaitingMain);
    const CProcessResult result = service.Start();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    ASSERT_TRUE(service.WaitForLog(kMainRuns));
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, WatchdogIsDetachedAndItsOnlyChildIsTheWorker)
{
    const CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns));

    const pid_t watchdog = service.PidFromFile();
    const pid_t worker = service.Worker();
    const CProcessState parent = ProcessInfo(watchdog);
    const CProcessState child = ProcessInfo(worker);
    ASSERT_EQ(parent.pid, watchdog);
    ASSERT_EQ(child.pid, worker);

    // The session leader has ended, so no terminal can come back.
    EXPECT_NE(parent.session, getsid(0));
    EXPECT_NE(parent.session, watchdog);
    EXPECT_TRUE(WaitUntil([&] { return !IsRunning(parent.session); }));
    EXPECT_EQ(parent.group, parent.session);
    EXPECT_EQ(parent.terminal, 0);

    EXPECT_EQ(child.parent, watchdog);
    EXPECT_EQ(child.group, parent.group);
    EXPECT_EQ(child.session, parent.session);
    EXPECT_TRUE(service.WaitUntilDetached());
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, IsInItsWorkingDirectoryOnTheNullDevice)
{
    const CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns));
    ASSERT_TRUE(service.WaitUntilDetached());
    for (const pid_t pid : service.Processes())
    {
        EXPECT_TRUE(LeadsTo(pid, "cwd", service.Host().Work()));
        for (const char* const fd : {"fd/0", "fd/1", "fd/2"})
            EXPECT_TRUE(LeadsTo(pid, fd, "/dev/null"));
        for (const fs::directory_entry& entry :
             fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
            EXPECT_EQ(fs::read_symlink(entry).string().find(".pid"),
                      std::string::npos)
                << "the claim is kept beyond the start";
    }
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, PidFileNamesTheWatchdogAndGoesWithIt)
{
    const CService service("other");
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns));

    const pid_t watchdog = ProcessInfo(service.Worker()).parent;
    EXPECT_EQ(ReadFile(service.PidFile()), std::to_string(watchdog) + "\n");
    struct stat info
    {
    };
    ASSERT_EQ(stat(service.PidFile().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0644U);

    EXPECT_TRUE(service.Stop());
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

TEST(Daemon, FileModeMaskIsInherited)
{
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.process.inChild = [] { umask(0137); };
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    for (const pid_t pid : service.Processes())
        EXPECT_NE(ReadFile("/proc/" + std::to_string(pid) + "/status")
                      .find("Umask:\t0137\n"),
                  std::string::npos);
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, WorkingDirectoryThatIsGoneIsIgnored)
{
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.arguments = {"--domain_var", "app.path.work=/no/such/place"};
    EXPECT_EQ(service.Start(options).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return service.Worker() != 0; }));
    EXPECT_TRUE(LeadsTo(service.PidFromFile(), "cwd", fs::current_path()));
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, PidFileThatNamesNobodyIsAbsent)
{
    const std::string contents[] = {"", "0\n", "nobody\n", "1 2", "-1\n"};
    for (const std::string& content : contents)
    {
        SCOPED_TRACE(content);
        const CService service;
        service.SetModule(kWaitingMain);
        WriteFile(service.PidFile(), content);
        ASSERT_TRUE(service.StartUntil(kMainRuns));
        EXPECT_EQ(Records(service, "present").size(), 0U);
        EXPECT_EQ(service.PidFromFile(), ProcessInfo(service.Worker()).parent);
        EXPECT_TRUE(service.Stop());
    }
}

TEST(Daemon, StalePidFileIsReportedAndRewritten)
{
    const CService service;
    service.SetModule(kWaitingMain);
    const std::string dead = std::to_string(DeadPid()) + "\n";
    WriteFile(service.PidFile(), dead);

    ASSERT_TRUE(service.StartUntil(kMainRuns));
    const std::vector<std::string> expected = {
        "INFO kza: /var/run/kz_agent.pid present (pid=" +
        std::to_string(PidIn(dead)) + "), but doesn't seem to be running."};
    EXPECT_EQ(Records(service, "present"), expected);
    EXPECT_EQ(service.PidFromFile(), ProcessInfo(service.Worker()).parent);
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, SecondStartIsRefused)
{
    const CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns));
    const std::string before = ReadFile(service.PidFile());

    EXPECT_EQ(service.Start().status, 1);
    const std::vector<std::string> expected = {
        "ERROR kza: /var/run/kz_agent.pid present, exiting"};
    EXPECT_EQ(Records(service, "present"), expected);
    EXPECT_EQ(ReadFile(service.PidFile()), before);
    EXPECT_TRUE(service.WaitUntilDetached());
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, AnyLiveProcessBlocksTheStart)
{
    const CService service;
    service.SetModule(kWaitingMain);
    const std::string content = std::to_string(getpid()) + "\n";
    WriteFile(service.PidFile(), content);
    EXPECT_EQ(service.Start().status, 1);
    EXPECT_EQ(ReadFile(service.PidFile()), content);
    EXPECT_TRUE(service.Processes().empty());
    EXPECT_EQ(std::distance(fs::directory_iterator(service.RunDir()), {}), 1);
}

TEST(Daemon, ALivePidFileBlocksTheStartHoweverItIsWritten)
{
    const CService service;
    service.SetModule(kWaitingMain);
    for (const std::string& content :
         {std::to_string(getpid()), " " + std::to_string(getpid()) + " \n"})
    {
        SCOPED_TRACE(content);
        WriteFile(service.PidFile(), content);
        EXPECT_EQ(service.Start().status, 1);
        EXPECT_EQ(ReadFile(service.PidFile()), content);
    }
}

// A process of another user that the agent must not signal.
TEST(Daemon, ProcessThatMayNotBeProbedBlocksTheStart)
{
    constexpr uid_t kNobody = 65534;
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    std::unique_ptr<CProcess> foreign;
    pid_t pid = 1;
    if (geteuid() == 0)
    {
        CProcessOptions asNobody;
        asNobody.inChild = [] { (void)!setuid(kNobody); };
        foreign = std::make_unique<CProcess>(
            std::vector<std::string>{"/bin/sleep", "1000"}, asNobody);
        pid = foreign->Pid();
        ASSERT_TRUE(WaitUntil(
            [&]
            {
                struct stat info
                {
                };
                const std::string path = "/proc/" + std::to_string(pid);
                return stat(path.c_str(), &info) == 0 && info.st_uid == kNobody;
            }));
        options.process.inChild = []
        { prctl(PR_CAPBSET_DROP, 5 /* CAP_KILL */, 0, 0, 0); };
    }
    WriteFile(service.PidFile(), std::to_string(pid) + "\n");
    EXPECT_EQ(service.Start(options).status, 1);
    EXPECT_EQ(Records(service, "present, exiting").size(), 1U);
}

TEST(Daemon, LongPathIsCutInBothMessages)
{
    const std::string name(150, 'n');
    const std::string shown = ("/var/run/" + name + ".pid").substr(0, 128);
    const CService service(name);
    service.SetModule(kWaitingMain);

    const std::string dead = std::to_string(DeadPid()) + "\n";
    WriteFile(service.PidFile(), dead);
    ASSERT_TRUE(service.StartUntil(kMainRuns));
    EXPECT_EQ(service.Start().status, 1);
    const std::vector<std::string> expected = {
        "INFO kza: " + shown + " present (pid=" + std::to_string(PidIn(dead)) +
            "), but doesn't seem to be running.",
        "ERROR kza: " + shown + " present, exiting"};
    EXPECT_EQ(Records(service, "present"), expected);
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, SymbolicLinkIsNeverFollowed)
{
    const CService service;
    service.SetModule(kWaitingMain);
    // The link's target names a live process, yet it is not asked.
    const std::string elsewhere = service.Host().File("elsewhere");
    const std::string content = std::to_string(getpid()) + "\n";
    WriteFile(elsewhere, content);
    fs::create_symlink(elsewhere, service.PidFile());

    ASSERT_TRUE(service.StartUntil(kMainRuns));
    EXPECT_FALSE(fs::is_symlink(service.PidFile()));
    EXPECT_EQ(service.PidFromFile(), ProcessInfo(service.Worker()).parent);
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(ReadFile(elsewhere), content);
}

TEST(Daemon, UnwritableRunDirectoryDoesNotStopTheService)
{
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.process.inChild = [] {
        mount(nullptr, "/run", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY,
              nullptr);
    };
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
    EXPECT_EQ(Records(service, "Unable to make a file beside "
                               "'/var/run/kz_agent.pid' (error 30: Read-only "
                               "file system)")
                  .size(),
              1U);
    kill(ProcessInfo(service.Worker()).parent, SIGTERM);
    EXPECT_TRUE(service.WaitUntilGone());
}

// The process that wrote the last record: the session leader, when it could not
// fork.
pid_t LeaderIn(const std::string& log)
{
    return PidIn(log.substr(log.rfind(" [") + 2));
}

TEST(Daemon, FailedForkEndsTheStart)
{
    const struct
    {
        const char* fork;
        int launcher;
        const char* message;
    } cases[] = {
        {"1", 255,
         "ERROR kza: Unable to fork (error 11: "
         "Resource temporarily unavailable)"},
        {"2", 0,
         "ERROR kza: Unable to do 2nd fork (error 11: "
         "Resource temporarily unavailable)"},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.fork);
        const CService service;
        service.SetModule(kWaitingMain);
        CServiceOptions options;
        options.withFaults = true;
        options.process.env = {{"KZA_FAIL_FORK", test.fork}};
        EXPECT_EQ(service.Start(options).status, test.launcher);
        EXPECT_TRUE(service.WaitForLog("exiting. Run time was"));
        EXPECT_TRUE(service.WaitUntilGone());
        EXPECT_EQ(Records(service, "fork"),
                  std::vector<std::string>{test.message});
        if (test.launcher == 0)
        {
            EXPECT_EQ(CService::StatusOf(LeaderIn(service.Log())), 255);
        }
        EXPECT_TRUE(fs::is_empty(service.RunDir()));
    }
}

std::vector<std::string> FirstLines(const std::string& file, std::size_t count)
{
    std::vector<std::string> lines = ReadLines(file);
    lines.resize(std::min(count, lines.size()));
    return lines;
}

TEST(Daemon, StepsComeInTheirOrder)
{
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.withFaults = true;
    const std::string steps = service.Host().File("steps");
    options.process.env = {{"KZA_STEP_LOG", steps}};
    ASSERT_TRUE(service.StartUntil(kMainRuns, options));
    const std::vector<std::string> expected = {
        "fork",
        "setsid",
        "chdir '" + service.Host().Work() + "'",
        "fork",
        "freopen /dev/null r 0",
        "freopen /dev/null w 1",
        "freopen /dev/null w 2",
        "rename to /var/run/kz_agent.pid",
        "fork"};
    EXPECT_EQ(FirstLines(steps, expected.size()), expected);
    EXPECT_TRUE(service.Stop());
}

TEST(Daemon, WorkingDirectoryThatTheLocaleCannotNameIsEmpty)
{
    const CService service("unnamed");
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.withFaults = true;
    const std::string steps = service.Host().File("steps");
    const std::string work = service.Host().File("\u00fc");
    fs::create_directories(work);
    options.process.env = {{"KZA_STEP_LOG", steps}, {"LC_ALL", "C"}};
    options.arguments = {"--workdir", work};
    EXPECT_EQ(service.Start(options).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return service.Worker() != 0; }));
    EXPECT_EQ(FirstLines(steps, 3).back(), "chdir ''");
}

// The launcher has ended while the session leader is at its first step.
TEST(Daemon, LauncherDoesNotWaitForThePidFile)
{
    const CService service;
    service.SetModule(kWaitingMain);
    CServiceOptions options;
    options.withFaults = true;
    const std::string goOn = service.Host().File("go-on");
    options.process.env = {{"KZA_HOLD", "setsid"}, {"KZA_HOLD_FILE", goOn}};
    EXPECT_EQ(service.Start(options).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return FileExists(goOn + ".held"); }));
    EXPECT_FALSE(FileExists(service.PidFile()));
    WriteFile(goOn, "");
    ASSERT_TRUE(service.WaitForLog(kMainRuns));
    EXPECT_NE(service.PidFromFile(), 0);
    EXPECT_TRUE(service.Stop());
}

// How a start ends that cannot lock the pid file, and what the log says.
TEST(Daemon, OnlyALockOfAnotherProcessRefusesTheStart)
{
    const std::string refused = "ERROR kza: /var/run/kz_agent.pid present, "
                                "exiting";
    const std::string unlocked = "ERROR kza: Unable to lock "
                                 "'/var/run/kz_agent.pid.lock' (error ";
    const struct
    {
        int error;
        int launcher;
        std::string record;
    } cases[] = {
        {EAGAIN, 1, refused},
        {EACCES, 1, refused},
        {ENOLCK, 0, unlocked + "37: No locks available)"},
        {EINVAL, 0, unlocked + "22: Invalid argument)"},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.record);
        const CService service;
        service.SetModule(kWaitingMain);
        CServiceOptions options;
        options.withFaults = true;
        options.speed = test.launcher == 1 ? 100 : 1; // it waits ten seconds
        options.process.env = {{"KZA_FAIL_LOCK", std::to_string(test.error)}};
        EXPECT_EQ(service.Start(options).status, test.launcher);
        if (test.launcher == 0)
        {
            ASSERT_TRUE(service.WaitForLog(kMainRuns));
            EXPECT_NE(service.PidFromFile(), 0);
            EXPECT_FALSE(FileExists(service.PidFile() + ".lock"));
            EXPECT_TRUE(service.Stop());
        }
        EXPECT_EQ(Records(service, "kz_agent.pid"),
                  std::vector<std::string>{test.record});
    }
}

// How one pair of simultaneous starts ended.
struct CPair
{
    int started = 0;
    int refused = 0;
};

CPair StartTwoAtOnce(const CService& service)
{
    const CProcessOptions options = service.Process();
    CProcess first(service.Words(), options);
    CProcess second(service.Words(), options);
    CPair pair;
    for (CProcess* const process : {&first, &second})
    {
        const int status = process->Wait().status;
        pair.started += status == 0 ? 1 : 0;
        pair.refused += status == 1 ? 1 : 0;
    }
    return pair;
}

class TwoStartsAtOnce : public testing::TestWithParam<bool>
{
};

// The pid file is stale in one half: both starts may overwrite it then.
TEST_P(TwoStartsAtOnce, OneSurvivesAndTheOtherSaysWhy)
{
    constexpr int kTimes = 100;
    const CService service("pair");
    service.SetModule(kWaitingMain);
    const std::string dead = std::to_string(DeadPid()) + "\n";
    for (int i = 1; i <= kTimes; ++i)
    {
        SCOPED_TRACE(i);
        if (GetParam())
            WriteFile(service.PidFile(), dead);
        const CPair pair = StartTwoAtOnce(service);
        ASSERT_EQ(pair.started, 1);
        ASSERT_EQ(pair.refused, 1);
        ASSERT_TRUE(service.WaitForLog(kMainRuns, i));
        ASSERT_EQ(CountOf(service.Log(), "pair.pid present, exiting"), i);
        ASSERT_TRUE(service.WaitUntilDetached());
        ASSERT_TRUE(service.Stop());
        ASSERT_TRUE(fs::is_empty(service.RunDir()));
    }
}

INSTANTIATE_TEST_SUITE_P(Daemon,
                         TwoStartsAtOnce,
                         testing::Bool(),
                         [](const auto& test)
                         { return test.param ? "StaleFile" : "NoFile"; });

} // namespace
