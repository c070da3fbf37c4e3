// SPDX-License-Identifier: Apache-2.0

#include "domain/KeyHash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

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

namespace
{

// How many places of a table of 1024 the keys of 512 numbers are in.
unsigned PlacesTaken(const std::string& prefix, const std::string& suffix)
{
    constexpr unsigned kShift = 64 - 10;
    std::set<std::uint64_t> places;
    for (int i = 0; i < 512; ++i)
    {
        std::string key = prefix;
        key += std::to_string(i);
        key += suffix;
        places.insert(HashOfKey(key) >> kShift);
    }
    return static_cast<unsigned>(places.size());
}

} // namespace

TEST(KeyHash, KeysThatDifferInANumberAreSpreadOverTheTable)
{
    for (const char* const prefix : {"", "k.", "abcdefg", "agent.component."})
        for (const char* const suffix : {"", "z", ".and.more"})
            // By chance it would be 403.
            EXPECT_GT(PlacesTaken(prefix, suffix), 300U)
                << prefix << "N" << suffix;
}
