// SPDX-License-Identifier: Apache-2.0
//
// The stack of signal handlers and the one that was there before it.

#include "process/SignalStack.h"

#include <gtest/gtest.h>

using KzaCore::CSignalStack;

TEST(SignalStack, GivesBackTheOneBefore)
{
    stack_t before = {};
    sigaltstack(nullptr, &before);
    {
        const CSignalStack signalStack;
        stack_t meanwhile = {};
        sigaltstack(nullptr, &meanwhile);
        EXPECT_NE(meanwhile.ss_sp, before.ss_sp);
        EXPECT_GE(meanwhile.ss_size, 65536U);
    }
    stack_t after = {};
    sigaltstack(nullptr, &after);
    EXPECT_EQ(after.ss_sp, before.ss_sp);
    EXPECT_EQ(after.ss_flags, before.ss_flags);
}
