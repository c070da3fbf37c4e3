// SPDX-License-Identifier: Apache-2.0
//
// Waiting for a stop request costs nothing where the system tells of a pending
// signal: the main thread sleeps without a time-out until the request comes.

#include "e2e/service/linux/TimeOutOfWait.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace TestSupport;

TEST(StopTimer, IsSetByTheRequestAlone)
{
    const CService service("idle");
    service.SetModule("return { main = function()\n"
                      "  dom:Log('message', 'main runs')\n"
                      "  repeat until io.open('go_on')\n"
                      "end }");
    ASSERT_TRUE(service.StartUntil("main runs"));
    const pid_t worker = service.Worker();
    EXPECT_TRUE(WaitUntil([&] { return TimeOutOfWait(worker) == kForEver; }));
    kill(worker, SIGTERM);
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            const std::string timeOut = TimeOutOfWait(worker);
            return !timeOut.empty() && timeOut != kForEver;
        }));
    WriteFile(service.Host().Work() + "/go_on", "");
    EXPECT_TRUE(service.WaitUntilGone());
}
