// SPDX-License-Identifier: Apache-2.0
//
// Retired memory is freed after its last reader, and not before.

#include "domain/Epoch.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace KzaCore;

namespace
{

struct CCounted final : CRetirable
{
    explicit CCounted(int& living) : count(living) { ++count; }
    ~CCounted() override { --count; }

    CCounted(const CCounted&) = delete;
    CCounted& operator=(const CCounted&) = delete;

    int& count;
};

struct CLarge final : CRetirable
{
};

constexpr int kManyBatches = 1000;

void RetireMany(CRetired& retired, int& living)
{
    for (int i = 0; i < kManyBatches; ++i)
    {
        retired.Add(new CCounted(living), 1);
        const CGarbage garbage = retired.Collect();
    }
}

} // namespace

TEST(Epoch, MemoryIsFreedInBatchesWithoutReaders)
{
    int living = 0;
    CRetired retired;
    RetireMany(retired, living);
    EXPECT_LT(living, kManyBatches / 4);
}

TEST(Epoch, LargeObjectsDoNotWaitForABatch)
{
    int living = 0;
    CRetired retired;
    for (int i = 0; i < 10; ++i)
    {
        retired.Add(new CCounted(living), 10 * 1024 * 1024);
        const CGarbage garbage = retired.Collect();
    }
    EXPECT_LE(living, 1);
}

TEST(Epoch, NothingThatAReaderMaySeeIsFreed)
{
    int living = 0;
    CRetired retired;
    {
        const CEpochGuard guard;
        RetireMany(retired, living);
        EXPECT_EQ(living, kManyBatches);
    }
    RetireMany(retired, living);
    EXPECT_LT(living, kManyBatches / 4);
}

TEST(Epoch, InnerGuardDoesNotEndTheOuter)
{
    int living = 0;
    CRetired retired;
    const CEpochGuard guard;
    {
        const CEpochGuard inner;
    }
    RetireMany(retired, living);
    EXPECT_EQ(living, kManyBatches);
}

TEST(Epoch, ReaderOnAnotherThreadHoldsMemory)
{
    int living = 0;
    CRetired retired;
    std::promise<void> reading;
    std::promise<void> finish;
    std::thread reader(
        [&]
        {
            const CEpochGuard guard;
            reading.set_value();
            finish.get_future().wait();
        });
    reading.get_future().wait();
    RetireMany(retired, living);
    EXPECT_EQ(living, kManyBatches);

    finish.set_value();
    reader.join();
    RetireMany(retired, living);
    EXPECT_LT(living, kManyBatches / 4);
}

TEST(Epoch, WhatIsSeenHoldsUpNothingOlder)
{
    int living = 0;
    CRetired retired;
    // One short of what makes a batch: nothing is freed yet.
    for (int i = 0; i < 63; ++i)
        retired.Add(new CCounted(living), 1);
    const CGarbage before = retired.Collect();
    EXPECT_EQ(living, 63);
    EpochDetail::g_epoch.fetch_add(1);
    const CEpochGuard guard;
    {
        retired.Add(new CCounted(living), 1);
        const CGarbage older = retired.Collect();
    }
    EXPECT_EQ(living, 1) << "what went before the reader came";
}

TEST(Epoch, GarbageLivesAsLongAsItsObject)
{
    int living = 0;
    CRetired retired;
    retired.Add(new CCounted(living), 10 * 1024 * 1024);
    {
        const CGarbage garbage = retired.Collect();
        EXPECT_EQ(living, 1);
    }
    EXPECT_EQ(living, 0);
}

TEST(Epoch, EndOfTheOwnerFreesTheRest)
{
    int living = 0;
    {
        CRetired retired;
        const CEpochGuard guard;
        RetireMany(retired, living);
    }
    EXPECT_EQ(living, 0);
}

TEST(Epoch, WhatAThreadRetiredIsFreedByItOrByTheNextInItsPlace)
{
    int living = 0;
    const auto retire = [&living](int count)
    {
        for (int i = 0; i < count; ++i)
        {
            Retire(new CCounted(living), 1);
            FreeRetired();
        }
    };
    std::thread([&] { retire(10); }).join();
    std::thread([&] { retire(kManyBatches); }).join();
    EXPECT_LT(living, kManyBatches / 4);
    // What is left refers to this function.
    std::thread(
        []
        {
            Retire(new CLarge, 10 * 1024 * 1024);
            FreeRetired();
        })
        .join();
    EXPECT_EQ(living, 0);
}

TEST(Epoch, SlotOfAnEndedThreadIsUsedAgain)
{
    const auto slotOfAThread = []
    {
        const CEpochSlot* slot = nullptr;
        std::thread(
            [&slot]
            {
                const CEpochGuard guard;
                slot = EpochDetail::t_slot;
            })
            .join();
        return slot;
    };
    const CEpochSlot* const first = slotOfAThread();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(slotOfAThread(), first);
}
