// SPDX-License-Identifier: Apache-2.0
//
// An agent that listens on its control socket sleeps until a client comes.

#include "e2e/control/Peer.h"
#include "e2e/service/WaitingService.h"
#include "e2e/service/linux/TimeOutOfWait.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace
{

const std::string kNil = R"({"ok":true,"type":"nil"})";

testing::AssertionResult SleepsForEver(pid_t worker)
{
    if (WaitUntil([&] { return TimeOutOfWait(worker) == kForEver; }))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << TimeOutOfWait(worker);
}

TEST(ControlIdle, NothingWakesItWithoutAClient)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    const pid_t worker = service.Worker();
    EXPECT_TRUE(SleepsForEver(worker));
    {
        CPeer peer(SocketOf(service));
        EXPECT_EQ(peer.Ask(R"({"do":"get","key":"k"})"), kNil);
        // One that may be silent for a minute is waited for.
        EXPECT_TRUE(WaitUntil(
            [&]
            {
                const std::string timeOut = TimeOutOfWait(worker);
                return !timeOut.empty() && timeOut != kForEver;
            }));
    }
    EXPECT_TRUE(SleepsForEver(worker)) << "once the client is gone";
    EXPECT_TRUE(service.Stop());
}

TEST(ControlIdle, WatcherOfAKeyThatDoesNotChangeWakesNothing)
{
    CService service;
    service.SetModule(kWaitingMain);
    ASSERT_TRUE(service.StartUntil(kMainRuns, kSwitchedOn));
    CPeer peer(SocketOf(service));
    EXPECT_EQ(peer.Ask(R"({"do":"watch","key":"k"})"), kNil);
    EXPECT_TRUE(SleepsForEver(service.Worker()));
    EXPECT_TRUE(service.Stop());
}

} // namespace
