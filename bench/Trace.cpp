// SPDX-License-Identifier: Apache-2.0
//
// What does a trace point cost while its component is off?
//
// Peers: spdlog's should_log(), and a relaxed load of an atomic.

#include "Bench.h"

#include "kza_core/Dom.h"
#include "kza_core/Trace.h"

#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <memory>

using namespace KzaCore;

namespace
{

constexpr int kTurns = 9;
constexpr int kCalls = 20'000'000;

// The compiler may not carry what it read over to the next turn of a loop.
template <typename F>
void Repeat(F&& check)
{
    for (int i = 0; i < kCalls; ++i)
    {
        Bench::Keep(check());
        asm volatile("" : : : "memory");
    }
}

void Compare(const char* question, const wxString& component, bool bounded)
{
    const auto logger = std::make_shared<spdlog::logger>(
        "peer", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::info);
    static std::atomic<int> word{0};

    const auto ours = [&]
    { Repeat([&] { return LogTraceIsEnabled(component); }); };
    const auto spdlog = Bench::BestOf(
        kTurns, ours,
        [&]
        { Repeat([&] { return logger->should_log(spdlog::level::trace); }); });
    const auto load = Bench::BestOf(
        kTurns, ours,
        [&] { Repeat([&] { return word.load(std::memory_order_relaxed); }); });

    constexpr double kNanoseconds = 1e9 / kCalls;
    const char* bound = bounded ? "ours<=2" : "";
    Bench::Row(std::string(question) + ", spdlog should_log",
               spdlog.ours * kNanoseconds, spdlog.peer * kNanoseconds, "ns",
               bound);
    Bench::Row(std::string(question) + ", relaxed load",
               load.ours * kNanoseconds, load.peer * kNanoseconds, "ns", bound);
}

} // namespace

int main()
{
    // As an agent traces by default.
    CDom* const dom = CDom::New(nullptr, nullptr, nullptr, false);
    dom->Set(DomKey::kTraceMore, "Appl,Cmd,Srvc,kza.Heartbeat,kza.ListenThread,"
                                 "kza.PluginUtils");
    Compare("trace check, component off", "Store", true);
    Compare("trace check, component on", "Appl", false);
    dom->Release();
    return 0;
}
