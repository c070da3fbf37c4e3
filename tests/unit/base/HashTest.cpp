// SPDX-License-Identifier: Apache-2.0

#include "base/Hash.h"

#include "base/RandomNumber.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

using namespace KzaCore;

TEST(Hash, EveryByteCounts)
{
    for (std::size_t size = 1; size <= 40; ++size)
    {
        const std::string key(size, 'k');
        EXPECT_EQ(HashBytes(key), HashBytes(std::string(size, 'k')));
        for (std::size_t at = 0; at < size; ++at)
        {
            SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(size));
            std::string other = key;
            other[at] = '\0';
            EXPECT_NE(HashBytes(key), HashBytes(other));
        }
    }
}

TEST(Hash, LengthCounts)
{
    const std::string zeros(40, '\0');
    for (std::size_t size = 0; size < zeros.size(); ++size)
    {
        SCOPED_TRACE(size);
        const std::string shorter = zeros.substr(0, size);
        const std::string longer = zeros.substr(0, size + 1);
        EXPECT_NE(HashBytes(shorter), HashBytes(longer));
    }
}

namespace
{

// How many places of a table of 1024, by ten bits of their hashes, the keys of
// 512 numbers are in.
std::size_t PlacesTaken(const std::string& prefix,
                        const std::string& suffix,
                        unsigned shift)
{
    std::set<std::uint64_t> places;
    for (int i = 0; i < 512; ++i)
    {
        std::string key = prefix;
        key += std::to_string(i);
        key += suffix;
        places.insert(HashBytes(key) >> shift & 1023);
    }
    return places.size();
}

} // namespace

TEST(Hash, KeysThatDifferInANumberAreSpreadByHighAndLowBits)
{
    for (const char* const prefix : {"", "k.", "abcdefg", "agent.component."})
        for (const char* const suffix : {"", "z", ".and.more"})
            for (const unsigned shift : {0U, 54U})
                // Places chosen at random would be 403.
                EXPECT_GT(PlacesTaken(prefix, suffix, shift), 300U)
                    << prefix << "N" << suffix;
}

namespace
{

std::string BytesOf(std::uint64_t word)
{
    std::string bytes(sizeof(word), '\0');
    std::memcpy(bytes.data(), &word, sizeof(word));
    return bytes;
}

// Sixteen bytes that begin with a word and all have one hash without a seed.
std::string Chosen(std::uint64_t first)
{
    // The size, 16 here, goes into the hash of the first word.
    const std::uint64_t half = HashBytes(BytesOf(first ^ 16 ^ 8));
    return BytesOf(first) + BytesOf(half ^ 0x6b7a61);
}

} // namespace

TEST(Hash, BytesChosenForEqualHashesDifferWithASeed)
{
    std::set<std::uint64_t> open;
    std::set<std::uint64_t> seeded;
    const std::uint64_t seed = RandomNumber();
    for (std::uint64_t first = 1; first <= 100; ++first)
    {
        open.insert(HashBytes(Chosen(first)));
        seeded.insert(HashBytes(Chosen(first), seed));
    }
    EXPECT_EQ(open.size(), 1U);
    EXPECT_EQ(seeded.size(), 100U);
}
