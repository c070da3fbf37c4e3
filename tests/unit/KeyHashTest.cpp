// SPDX-License-Identifier: Apache-2.0

#include "KeyHash.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace KzaCore;

TEST(KeyHash, EveryByteCounts)
{
    for (std::size_t size = 1; size <= 40; ++size)
    {
        const std::string key(size, 'k');
        EXPECT_TRUE(IsSameKey(key, std::string(size, 'k')));
        EXPECT_EQ(HashOfKey(key), HashOfKey(std::string(size, 'k')));
        for (std::size_t at = 0; at < size; ++at)
        {
            SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(size));
            std::string other = key;
            other[at] = '\0';
            EXPECT_FALSE(IsSameKey(key, other));
            EXPECT_NE(HashOfKey(key), HashOfKey(other));
        }
    }
}

TEST(KeyHash, LengthCounts)
{
    const std::string zeros(40, '\0');
    for (std::size_t size = 0; size < zeros.size(); ++size)
    {
        SCOPED_TRACE(size);
        const std::string shorter = zeros.substr(0, size);
        const std::string longer = zeros.substr(0, size + 1);
        EXPECT_FALSE(IsSameKey(shorter, longer));
        EXPECT_NE(HashOfKey(shorter), HashOfKey(longer));
    }
    EXPECT_TRUE(IsSameKey("", ""));
}

TEST(KeyHash, KeysThatDifferInANumberAreSpreadOverTheTable)
{
    // A table of 1024 places, half of them taken.
    constexpr unsigned kShift = 64 - 10;
    for (const std::string prefix : {"", "k.", "abcdefg", "agent.component."})
        for (const std::string suffix : {"", "z", ".and.more"})
        {
            SCOPED_TRACE(prefix + "N" + suffix);
            std::vector<bool> taken(1024);
            unsigned places = 0;
            for (int i = 0; i < 512; ++i)
            {
                const std::string key = prefix + std::to_string(i) + suffix;
                const std::size_t at = HashOfKey(key) >> kShift;
                places += taken[at] ? 0 : 1;
                taken[at] = true;
            }
            // By chance it would be 403.
            EXPECT_GT(places, 300U);
        }
}
