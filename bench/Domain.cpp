// SPDX-License-Identifier: Apache-2.0
//
// Does the domain serve many readers better than a concurrent hash map?
//
// 200 keys that hold strings, booleans and integers; each thread reads them in
// an order of its own and writes one time in twenty. Peer:
// tbb::concurrent_hash_map with an accessor per operation.

#include "Bench.h"

#include "kza_core/Dom.h"

#include <tbb/concurrent_hash_map.h>

#include <atomic>
#include <map>
#include <thread>
#include <variant>
#include <vector>

#include <pthread.h>

using namespace KzaCore;

namespace
{

constexpr unsigned kKeys = 200;
// Of each thread; short turns, and many, find the machine at rest.
constexpr unsigned kOperations = 100000;
constexpr int kTurns = 150;

const std::string& Key(unsigned i)
{
    static const std::vector<std::string> keys = []
    {
        std::vector<std::string> made;
        for (unsigned k = 0; k < kKeys; ++k)
            made.push_back("agent.component." + std::to_string(k));
        return made;
    }();
    return keys[i];
}

// The type of a key stays; every third is a string.
class CDomain
{
public:
    CDomain() : m_dom(CDom::New(nullptr, nullptr, nullptr, false)) {}
    ~CDomain() { m_dom->Release(); }

    CDomain(const CDomain&) = delete;
    CDomain& operator=(const CDomain&) = delete;

    void Write(unsigned i, unsigned value)
    {
        if (i % 3 == 0)
            m_dom->Set(Key(i), "value " + std::to_string(value));
        else if (i % 3 == 1)
            m_dom->Set(Key(i), value % 2 == 0);
        else
            m_dom->Set(Key(i), static_cast<long long>(value));
    }

    bool Read(unsigned i) const
    {
        if (i % 3 == 0)
        {
            std::string text;
            return m_dom->Get(Key(i), text) && !text.empty();
        }
        bool flag = false;
        long long number = 0;
        return i % 3 == 1 ? m_dom->Get(Key(i), flag)
                          : m_dom->Get(Key(i), number);
    }

private:
    CDom* const m_dom;
};

class CHashMap
{
public:
    void Write(unsigned i, unsigned value)
    {
        Map::accessor place;
        m_map.insert(place, Key(i));
        if (i % 3 == 0)
            place->second = "value " + std::to_string(value);
        else if (i % 3 == 1)
            place->second = value % 2 == 0;
        else
            place->second = static_cast<long long>(value);
    }

    bool Read(unsigned i) const
    {
        Map::const_accessor place;
        if (!m_map.find(place, Key(i)))
            return false;
        if (i % 3 == 0)
        {
            const std::string text = std::get<std::string>(place->second);
            return !text.empty();
        }
        return i % 3 == 1 ? std::holds_alternative<bool>(place->second)
                          : std::holds_alternative<long long>(place->second);
    }

private:
    using Map =
        tbb::concurrent_hash_map<std::string,
                                 std::variant<std::string, bool, long long>>;
    Map m_map;
};

template <typename TStore>
void Work(TStore& store, unsigned seed)
{
    unsigned random = seed * 2654435761U + 1;
    unsigned found = 0;
    for (unsigned n = 0; n < kOperations; ++n)
    {
        random = random * 1664525U + 1013904223U;
        const unsigned key = (random >> 12) % kKeys;
        if (n % 20 == 0)
            store.Write(key, n);
        else
            found += store.Read(key) ? 1 : 0;
    }
    Bench::Keep(found);
}

// A turn is too short for the system to spread the threads by itself.
void StayOnCore(unsigned core)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core % std::thread::hardware_concurrency(), &cores);
    pthread_setaffinity_np(pthread_self(), sizeof(cores), &cores);
}

// Seconds from when all threads are there until all are done.
template <typename TStore>
double RunThreads(TStore& store, unsigned count)
{
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::time_point> begins(count);
    std::vector<Clock::time_point> ends(count);
    std::atomic<unsigned> missing{count};
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back(
            [&, i]
            {
                StayOnCore(i);
                --missing;
                while (missing > 0)
                    std::this_thread::yield();
                begins[i] = Clock::now();
                Work(store, i);
                ends[i] = Clock::now();
            });
    for (std::thread& thread : threads)
        thread.join();
    const std::chrono::duration<double> time =
        *std::max_element(ends.begin(), ends.end()) -
        *std::min_element(begins.begin(), begins.end());
    return time.count();
}

template <typename TStore>
void Fill(TStore& store)
{
    for (unsigned i = 0; i < kKeys; ++i)
        store.Write(i, i);
}

} // namespace

int main()
{
    CDomain domain;
    CHashMap map;
    Fill(domain);
    Fill(map);

    std::map<unsigned, double> rates;
    for (const unsigned threads : {1U, 2U, 4U})
    {
        Bench::CBest best = {1e9, 1e9};
        for (int turn = 0; turn < kTurns; ++turn)
        {
            best.ours = std::min(best.ours, RunThreads(domain, threads));
            best.peer = std::min(best.peer, RunThreads(map, threads));
        }
        const double millions = threads * kOperations / 1e6;
        rates[threads] = millions / best.ours;
        Bench::Row("domain, 5 % writes, threads: " + std::to_string(threads),
                   rates[threads], millions / best.peer, "M/s", ">=1");
    }
    // A machine with one core has nothing to grow into.
    if (std::thread::hardware_concurrency() > 1)
        Bench::Row("domain, two threads beside one", rates[2], rates[1], "M/s",
                   ">=1.2");
    return 0;
}
