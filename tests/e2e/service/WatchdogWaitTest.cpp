// SPDX-License-Identifier: Apache-2.0
//
// What the watchdog makes of what waiting for its worker tells, where no worker
// can bring it about at will.

#include "e2e/service/Workers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

TEST(Watchdog, RareWaitStatuses)
{
    const struct
    {
        const char* status;
        const char* said;
        bool ends;
    } table[] = {
        {"15",
         "INFO kza: Child process exited with status 15 (signal 15: "
         "Terminated)",
         true},
        {"143",
         "INFO kza: Child process exited with status 143 (signal 15: "
         "Terminated)",
         true},
        {"139",
         "ERROR kza: Child process crashed with status 139 (signal 11: "
         "Segmentation fault)",
         false},
        {"137",
         "INFO kza: Child process exited with status 137 (signal 9: "
         "Killed)",
         false},
        {"4991", "INFO kza: Child process exited with status 4991", false},
        {"65535", "INFO kza: Child process exited with status 65535", false},
        {"100",
         "INFO kza: Child process exited with status 100 (signal 100: "
         "Unknown signal 100)",
         false},
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.status);
        const CService service("rare");
        service.SetModule(Ends(1));
        SServiceOptions options;
        options.withFaults = true;
        options.process.env = {{"KZA_WAIT_STATUS", row.status}};
        ASSERT_TRUE(service.StartUntil("Child process", options));
        if (row.ends)
        {
            EXPECT_TRUE(service.WaitUntilGone());
            const Lines expected = {kWorkerRuns, row.said};
            EXPECT_EQ(Said(service), expected);
            EXPECT_TRUE(fs::is_empty(service.RunDir()));
            continue;
        }
        EXPECT_TRUE(service.WaitForLog(kRuns, 2));
        EXPECT_EQ(Said(service).at(1), row.said);
        EXPECT_EQ(Said(service).at(2), Delaying(1000, 1));
    }
}

TEST(Watchdog, KilledBySigtermIsSuccess)
{
    const CService service("terminated");
    service.SetModule(EndsWhenTold(1));
    SServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_WAIT_STATUS", "143"}};
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    Tell(service);
    EXPECT_EQ(CService::StatusOf(watchdog), 0);
}

TEST(Watchdog, FailedWaitEndsTheService)
{
    const CService service;
    service.SetModule(EndsWhenTold(5));
    SServiceOptions options;
    // Children that nobody needs to wait for cannot be waited for.
    options.process.inChild = [] { (void)signal(SIGCHLD, SIG_IGN); };
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    Tell(service);
    EXPECT_EQ(CService::StatusOf(watchdog), 255);
    const Lines expected = {
        kStarting, kWorkerRuns,
        "ERROR kza: Error waiting for child process (error 10: No child "
        "processes)",
        kExiting};
    EXPECT_EQ(Said(service), expected);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

TEST(Watchdog, AnotherProcessIsNotTheWorkersEnd)
{
    const CService service;
    service.SetModule(EndsWhenTold(5));
    SServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_WAIT_OTHER", "1"}};
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    Tell(service);
    EXPECT_EQ(CService::StatusOf(watchdog), 5);
    const Lines expected = {
        kStarting, kWorkerRuns,
        "INFO kza: Child process exited with status 1280 (exit 5)", kExiting};
    EXPECT_EQ(Said(service), expected);
}

TEST(Watchdog, SignalWithoutADescriptionIsUnknown)
{
    const CService service("nameless");
    service.SetModule(Worker(""));
    SServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_NO_SIGNAL_NAMES", "1"}};
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    kill(service.Worker(), SIGKILL);
    EXPECT_TRUE(service.WaitForLog("INFO kza: Child process exited with status "
                                   "9 (signal 9: Unknown Signal)"));
    ASSERT_TRUE(service.WaitForLog(kRuns, 2));
    EXPECT_TRUE(service.Stop());
}

} // namespace
