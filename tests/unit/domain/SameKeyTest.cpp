// SPDX-License-Identifier: Apache-2.0

#include "domain/SameKey.h"

#include <gtest/gtest.h>

#include <string>

using namespace KzaCore;

TEST(SameKey, EveryByteCounts)
{
    for (std::size_t size = 1; size <= 40; ++size)
    {
        const std::string key(size, 'k');
        EXPECT_TRUE(IsSameKey(key, std::string(size, 'k')));
        for (std::size_t at = 0; at < size; ++at)
        {
            SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(size));
            std::string other = key;
            other[at] = '\0';
            EXPECT_FALSE(IsSameKey(key, other));
        }
    }
}

TEST(SameKey, LengthCounts)
{
    const std::string zeros(40, '\0');
    for (std::size_t size = 0; size < zeros.size(); ++size)
    {
        SCOPED_TRACE(size);
        const std::string shorter = zeros.substr(0, size);
        const std::string longer = zeros.substr(0, size + 1);
        EXPECT_FALSE(IsSameKey(shorter, longer));
    }
    EXPECT_TRUE(IsSameKey("", ""));
}
