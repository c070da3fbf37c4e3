// SPDX-License-Identifier: Apache-2.0

#include "base/SignalSet.h"

#include <gtest/gtest.h>

using namespace KzaCore;

TEST(SignalSet, HoldsJustTheNamedSignals)
{
    const sigset_t set = SignalSet({SIGINT, SIGTERM});
    EXPECT_EQ(sigismember(&set, SIGINT), 1);
    EXPECT_EQ(sigismember(&set, SIGTERM), 1);
    EXPECT_EQ(sigismember(&set, SIGHUP), 0);
    const sigset_t empty = SignalSet({});
    EXPECT_EQ(sigismember(&empty, SIGINT), 0);
}

TEST(SignalSet, HoldsAllButTheNamedSignals)
{
    const sigset_t set = AllSignalsBut({SIGINT});
    EXPECT_EQ(sigismember(&set, SIGINT), 0);
    EXPECT_EQ(sigismember(&set, SIGHUP), 1);
    EXPECT_EQ(sigismember(&set, SIGRTMIN), 1);
}
