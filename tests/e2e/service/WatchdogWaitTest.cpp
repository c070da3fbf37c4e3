// SPDX-License-Identifier: Apache-2.0
//
// The watchdog's wait for its worker, where waitpid() answers something else
// than the worker's end.

#include "e2e/service/Workers.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

TEST(Watchdog, FailedWaitEndsTheService)
{
    const CService service;
    service.SetModule(EndsWhenTold(5));
    CServiceOptions options;
    // While SIGCHLD is ignored the system reaps children itself, and waitpid()
    // finds none.
    options.process.inChild = [] { (void)signal(SIGCHLD, SIG_IGN); };
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    Tell(service);
    EXPECT_EQ(CService::StatusOf(watchdog), 255);
    const std::string failed = "ERROR kza: Error waiting for child process "
                               "(error 10: No child processes)";
    const Lines expected = {kStarting,        kUp,     kWorkerRuns, failed,
                            ServiceEnds(255), kExiting};
    EXPECT_EQ(Said(service), expected);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
}

TEST(Watchdog, AnotherProcessIsNotTheWorkersEnd)
{
    const CService service;
    service.SetModule(EndsWhenTold(5));
    CServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_WAIT_OTHER", "1"}};
    ASSERT_TRUE(service.StartUntil(kRuns, options));
    const pid_t watchdog = service.PidFromFile();
    Tell(service);
    EXPECT_EQ(CService::StatusOf(watchdog), 5);
    const Lines expected = {kStarting,      kUp,     kWorkerRuns, Exited(5),
                            ServiceEnds(5), kExiting};
    EXPECT_EQ(Said(service), expected);
}

} // namespace
