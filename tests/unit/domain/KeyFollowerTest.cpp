// SPDX-License-Identifier: Apache-2.0

#include "kza_core/KeyFollower.h"
#include "support/DomPtr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

TEST(KeyFollower, ShowsThePresentValueAndEachChange)
{
    const DomPtr dom = NewDom();
    dom->Set("k", "first");
    std::vector<DomValue> values;
    {
        const CKeyFollower follower(
            *dom, "k", [&](const DomValue& value) { values.push_back(value); });
        dom->Set("k", true);
        dom->Set("other", true);
        dom->Set("k", true);
        dom->Remove("k");
        dom->Remove("k");
        dom->Set("k", 7LL);
    }
    dom->Set("k", 8LL);
    const std::vector<DomValue> expected = {std::string("first"), true, true,
                                            std::monostate(), 7LL};
    EXPECT_EQ(values, expected);
}

TEST(KeyFollower, SeveralFollowOneKeyAndGoInAnyOrder)
{
    const DomPtr dom = NewDom();
    int calls[3] = {};
    std::vector<std::unique_ptr<CKeyFollower>> followers;
    for (int& count : calls)
        followers.push_back(std::make_unique<CKeyFollower>(
            *dom, "k", [&count](const DomValue&) { ++count; }));
    dom->Set("k", 1LL);
    followers[1].reset();
    dom->Set("k", 2LL);
    followers[2].reset();
    dom->Set("k", 3LL);
    followers[0].reset();
    dom->Set("k", 4LL);
    EXPECT_EQ(calls[0], 4);
    EXPECT_EQ(calls[1], 2);
    EXPECT_EQ(calls[2], 3);
}

TEST(KeyFollower, NeverShowsAnOlderValueAfterANewerOne)
{
    const DomPtr dom = NewDom();
    std::atomic<bool> stop{false};
    dom->Set("k", 0LL);
    std::thread writer(
        [&]
        {
            for (long long i = 1; !stop; ++i)
                dom->Set("k", i);
        });
    for (int round = 0; round < 200; ++round)
    {
        long long last = -1;
        bool ordered = true;
        int calls = 0;
        const CKeyFollower follower(*dom, "k",
                                    [&](const DomValue& value)
                                    {
                                        const long long now =
                                            std::get<long long>(value);
                                        ordered = ordered && now >= last;
                                        last = now;
                                        ++calls;
                                    });
        EXPECT_TRUE(ordered);
        EXPECT_GE(calls, 1);
    }
    stop = true;
    writer.join();
}

} // namespace
