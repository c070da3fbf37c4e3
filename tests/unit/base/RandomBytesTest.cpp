// SPDX-License-Identifier: Apache-2.0

#include "base/RandomBytes.h"

#include "base/RandomNumber.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace KzaCore;

TEST(RandomBytes, FillTheWholeBufferEachTimeWithOthers)
{
    std::array<char, 256> first = {};
    std::array<char, 256> second = {};
    ASSERT_TRUE(FillWithRandomBytes(first.data(), first.size()));
    ASSERT_TRUE(FillWithRandomBytes(second.data(), second.size()));
    EXPECT_NE(first, second);
    // All zeros by chance: once in 2^64 runs.
    EXPECT_NE(std::string(first.end() - 8, first.end()), std::string(8, '\0'));
}

TEST(RandomBytes, EachNumberIsAnother)
{
    EXPECT_NE(RandomNumber(), RandomNumber());
}
