// SPDX-License-Identifier: Apache-2.0
//
// Waiting for a stop request costs nothing where the system tells of a pending
// signal: the main thread sleeps without a time-out until the request comes.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

using namespace TestSupport;

namespace
{

// The time-out of the call for events that the process's main thread is in, as
// the kernel shows it: the number of the call, then its arguments, of which the
// time-out is the fourth. Empty when the thread is not in a call.
std::string TimeOutOfWait(pid_t pid)
{
    std::istringstream call(
        ReadFile("/proc/" + std::to_string(pid) + "/syscall"));
    std::string word;
    for (int i = 0; i < 5; ++i)
        if (!(call >> word))
            return {};
    return word;
}

constexpr char kForEver[] = "0xffffffff"; // -1

} // namespace

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
