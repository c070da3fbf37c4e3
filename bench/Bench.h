// SPDX-License-Identifier: Apache-2.0
//
// What the benchmarks share: timing, and the row that `run` collects.
//
// A benchmark runs the agent's way and a peer's way in the same process or
// script, by turns, and prints a row for each question.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

namespace Bench
{

/// Keeps the compiler from dropping a value that is not used.
template <typename T>
inline void Keep(const T& value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Seconds that a call takes.
template <typename F>
double Seconds(F&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> time =
        std::chrono::steady_clock::now() - start;
    return time.count();
}

/// Seconds of processor time that a call takes on this thread. For work that
/// waits for nothing: what else the machine does counts less.
template <typename F>
double ProcessorSeconds(F&& work)
{
    const auto now = []
    {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) +
               static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    work();
    return now() - start;
}

struct CBest
{
    double ours;
    double peer;
};

/// The shortest times of the two, run by turns: what else the machine does
/// only ever adds to them.
template <typename Ours, typename Peer>
CBest BestOf(int turns, Ours&& ours, Peer&& peer)
{
    CBest best = {1e9, 1e9};
    for (int i = 0; i < turns; ++i)
    {
        best.ours = std::min(best.ours, Seconds(ours));
        best.peer = std::min(best.peer, Seconds(peer));
    }
    return best;
}

inline std::string Text(double number, const char* unit)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.3g %s", number, unit);
    return text;
}

/// One row of the table.
///
/// \param unit   Of both figures.
/// \param bound  What must hold for ours / peer, `<=1.15` or `>=0.7`; with
///               `ours` before it, for our figure: `ours<=2`. Empty when the
///               row only informs.
inline void Row(const std::string& question,
                double ours,
                double peer,
                const char* unit,
                const char* bound)
{
    std::printf("ROW\t%s\t%s\t%s\t%.3f\t%s\n", question.c_str(),
                Text(ours, unit).c_str(), Text(peer, unit).c_str(), ours / peer,
                bound);
    std::fflush(stdout);
}

} // namespace Bench
