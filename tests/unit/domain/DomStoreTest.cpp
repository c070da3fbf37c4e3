// SPDX-License-Identifier: Apache-2.0
//
// Many threads on one domain, memory over a long life, and life after a fork.

#include "domain/DomStore.h"
#include "kza_core/Dom.h"

#include "support/DomPtr.h"
#include "support/Heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KzaCore;
using TestSupport::DomPtr;
using TestSupport::HeapInUse;
using TestSupport::NewDom;

namespace
{

// A value of any length says itself whether it is whole.
std::string WholeText(unsigned n)
{
    return std::string(1 + n % 40, static_cast<char>('a' + n % 26));
}

bool IsWhole(const std::string& text)
{
    return !text.empty() &&
           text.find_first_not_of(text.front()) == std::string::npos;
}

std::string KeyOf(unsigned n)
{
    return "key." + std::to_string(n % 50);
}

void WriteAll(CDom& dom, unsigned rounds)
{
    for (unsigned n = 0; n < rounds; ++n)
    {
        if (n % 7 == 0)
            dom.Remove(KeyOf(n * 31));
        else if (n % 3 == 0)
            dom.Set(KeyOf(n * 31), n % 2 == 0);
        else
            dom.Set(KeyOf(n * 31), WholeText(n));
        // Keys come and go, so the index is made anew all the time.
        const std::string passing = "passing." + std::to_string(n);
        dom.Set(passing, static_cast<long long>(n));
        dom.Remove(passing);
    }
}

template <typename TWork>
void RunThreads(unsigned count, TWork work, std::vector<std::thread>& threads)
{
    threads.reserve(threads.size() + count);
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back(work, i);
}

void JoinAll(std::vector<std::thread>& threads)
{
    for (std::thread& thread : threads)
        thread.join();
}

// Reads until told to stop; returns how often something was wrong.
unsigned ReadAll(const CDom& dom, const std::atomic<bool>& stop)
{
    unsigned wrong = 0;
    for (unsigned n = 0; !stop; ++n)
    {
        std::string text;
        if (dom.Get(KeyOf(n), text) && !IsWhole(text))
            ++wrong;
        std::string fixed;
        if (!dom.Get("fixed", fixed) || fixed != "never changes")
            ++wrong;
        if (n % 100 == 0 && dom.Keys("fixed").size() != 1)
            ++wrong;
    }
    return wrong;
}

} // namespace

TEST(DomStore, ReadersSeeWholeValuesAndMissNoKey)
{
    const DomPtr dom = NewDom();
    dom->Set("fixed", "never changes");
    std::atomic<bool> stop{false};
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> readers;
    RunThreads(
        3, [&](unsigned) { wrong += ReadAll(*dom, stop); }, readers);
    std::vector<std::thread> writers;
    RunThreads(
        2, [&](unsigned) { WriteAll(*dom, 20000); }, writers);
    JoinAll(writers);
    stop = true;
    JoinAll(readers);
    EXPECT_EQ(wrong, 0U);
    EXPECT_TRUE(dom->Keys("passing.").empty());
}

TEST(DomStore, WriterIsSeenByItsOwnThread)
{
    const DomPtr dom = NewDom();
    std::vector<std::thread> threads;
    std::atomic<unsigned> wrong{0};
    RunThreads(
        3,
        [&](unsigned t)
        {
            const std::string prefix = std::to_string(t) + ".";
            for (long long n = 0; n < 5000; ++n)
            {
                const std::string key = prefix + std::to_string(n % 300);
                long long out = -1;
                dom->Set(key, n);
                if (!dom->Get(key, out) || out != n)
                    ++wrong;
                dom->Remove(key);
                if (dom->Get(key, out))
                    ++wrong;
            }
        },
        threads);
    JoinAll(threads);
    EXPECT_EQ(wrong, 0U);
}

TEST(DomStore, EveryReplacementByAnyThreadIsCounted)
{
    const DomPtr dom = NewDom();
    dom->Set("k", true);
    const std::uint64_t before = dom->Generation("k");
    constexpr unsigned kThreads = 3;
    constexpr unsigned kRounds = 20000;
    std::vector<std::thread> writers;
    RunThreads(
        kThreads,
        [&](unsigned t)
        {
            for (unsigned n = 0; n < kRounds; ++n)
                dom->Set("k", WholeText(n + t));
        },
        writers);
    JoinAll(writers);
    EXPECT_EQ(dom->Generation("k"), before + std::uint64_t{kThreads} * kRounds);
    EXPECT_TRUE(IsWhole(dom->Get("k")));
}

TEST(DomStore, OneKeyIsSetAndRemovedByAllAtOnce)
{
    const DomPtr dom = NewDom();
    std::vector<std::thread> writers;
    RunThreads(
        3,
        [&](unsigned t)
        {
            for (unsigned n = 0; n < 20000; ++n)
            {
                if ((n + t) % 3 == 0)
                    dom->Remove("k");
                else
                    dom->Set("k", WholeText(n));
                // So that the index is made anew while the key is unset.
                dom->Set(std::to_string(t) + "." + std::to_string(n), true);
                dom->Remove(std::to_string(t) + "." + std::to_string(n));
            }
        },
        writers);
    JoinAll(writers);
    dom->Set("k", "last");
    EXPECT_EQ(dom->Keys(), std::vector<std::string>({"k"}));
    EXPECT_EQ(dom->Get("k"), "last");
}

TEST(DomStore, ValueInUseMayBeReplacedByItsReader)
{
    CDomStore store(nullptr);
    store.SetString("k", "first");
    std::string seen;
    const bool isSet =
        store.Read("k",
                   [&](const DomContent& content)
                   {
                       for (int i = 0; i < 1000; ++i)
                           store.SetString("k", std::to_string(i));
                       store.Remove("k");
                       EXPECT_FALSE(store.Read("k", [](const DomContent&) {}));
                       seen = std::get<std::string>(content);
                   });
    EXPECT_TRUE(isSet);
    EXPECT_EQ(seen, "first");
}

namespace
{

void SetAndRemoveNewKeys(CDom& dom, int from, int count)
{
    for (int i = from; i < from + count; ++i)
    {
        const std::string key = "new." + std::to_string(i);
        dom.Set(key, std::string(100, 'x'));
        dom.Remove(key);
    }
}

} // namespace

TEST(DomStore, EverNewKeysDoNotGrowMemory)
{
    const DomPtr dom = NewDom();
    SetAndRemoveNewKeys(*dom, 0, 1000);
    const size_t before = HeapInUse();
    SetAndRemoveNewKeys(*dom, 1000, 100000);
    EXPECT_LT(HeapInUse(), before + 256 * 1024);
}

TEST(DomStore, EverNewValuesDoNotGrowMemory)
{
    const DomPtr dom = NewDom();
    const auto setMany = [&]
    {
        for (int i = 0; i < 1000; ++i)
            dom->Set("k", std::string(10000, 'x'));
    };
    setMany();
    const size_t before = HeapInUse();
    setMany();
    EXPECT_LT(HeapInUse(), before + 1024 * 1024);
}

TEST(DomStore, MemoryOfManyRemovedKeysIsGivenBack)
{
    const DomPtr dom = NewDom();
    const size_t before = HeapInUse();
    for (int i = 0; i < 50000; ++i)
        dom->Set("k." + std::to_string(i), true);
    const size_t full = HeapInUse();
    for (int i = 0; i < 50000; ++i)
        dom->Remove("k." + std::to_string(i));
    // A few writes later, when readers had time to leave.
    SetAndRemoveNewKeys(*dom, 0, 1000);
    EXPECT_GT(full, before + 50000 * sizeof(void*));
    EXPECT_LT(HeapInUse(), before + 512 * 1024);
}

TEST(DomStore, ForkedChildGoesOn)
{
    const DomPtr dom = NewDom();
    dom->Set("k", "of the parent");
    fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        std::uint64_t seen = dom->Generation("k");
        bool good = dom->Get("k") == "of the parent";
        std::thread writer([&] { WriteAll(*dom, 1000); });
        std::thread waker([&] { dom->Set("k", "of the child"); });
        good = dom->Wait("k", std::chrono::milliseconds::max(), seen) && good;
        writer.join();
        waker.join();
        _exit(good && dom->Get("k") == "of the child" ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(dom->Get("k"), "of the parent");
}
