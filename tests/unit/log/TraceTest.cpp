// SPDX-License-Identifier: Apache-2.0
//
// Which components are traced.

#include "log/TraceSet.h"

#include "kza_core/Dom.h"
#include "kza_core/Trace.h"

#include "support/DomPtr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace KzaCore;
using TestSupport::DomPtr;
using TestSupport::NewDom;

namespace
{

/// The root domain, whose trace keys are set.
class CTraceDom
{
public:
    void Set(const char* list, const char* more) const
    {
        m_dom->Set(DomKey::kTrace, list);
        m_dom->Set(DomKey::kTraceMore, more);
    }

    void Remove(const char* key) const { m_dom->Remove(key); }

private:
    DomPtr m_dom = NewDom();
};

} // namespace

TEST(Trace, ListIsSplitAtCommasAndTrimmed)
{
    const struct
    {
        const wchar_t* list;
        std::vector<std::wstring> names;
        bool all;
    } cases[] = {
        {L"", {}, false},
        {L",, ,", {}, false},
        {L"Appl", {L"Appl"}, false},
        {L" Appl ,\tCmd\n", {L"Appl", L"Cmd"}, false},
        {L"Cmd,Appl", {L"Appl", L"Cmd"}, false},
        {L"two words", {L"two words"}, false},
        {L"*", {}, true},
        {L"Appl, * ", {L"Appl"}, true},
        {L"App*", {L"App*"}, false},
        {L"\u00e4,\U0001f600", {L"\u00e4", L"\U0001f600"}, false},
    };
    for (const auto& one : cases)
    {
        const CTraceSet set(one.list);
        EXPECT_EQ(set.Names(), one.names);
        EXPECT_EQ(set.HasAll(), one.all);
    }
}

TEST(Trace, NothingIsTracedAtFirst)
{
    EXPECT_FALSE(LogTraceIsEnabled("Appl"));
    EXPECT_FALSE(LogTraceIsEnabled(""));
}

TEST(Trace, BothKeysAddUp)
{
    const CTraceDom dom;
    dom.Set("Appl,Cmd", "Srvc, kza.Heartbeat");
    for (const char* name : {"Appl", "Cmd", "Srvc", "kza.Heartbeat"})
        EXPECT_TRUE(LogTraceIsEnabled(name)) << name;
    for (const char* name : {"", "appl", "App", "Appl ", "Applx", "kza", "*"})
        EXPECT_FALSE(LogTraceIsEnabled(name)) << name;
}

TEST(Trace, StarEnablesAll)
{
    const CTraceDom dom;
    dom.Set("", "*");
    for (const char* name : {"Appl", "", "*", "anything at all"})
        EXPECT_TRUE(LogTraceIsEnabled(name)) << name;
    dom.Set("Appl", "");
    EXPECT_TRUE(LogTraceIsEnabled("Appl"));
    EXPECT_FALSE(LogTraceIsEnabled("anything at all"));
}

TEST(Trace, RemovedKeyTurnsItsComponentsOff)
{
    const CTraceDom dom;
    dom.Set("Appl", "Cmd");
    dom.Remove(DomKey::kTrace);
    EXPECT_FALSE(LogTraceIsEnabled("Appl"));
    EXPECT_TRUE(LogTraceIsEnabled("Cmd"));
}

TEST(Trace, NamesOfOneHashAreToldApart)
{
    // More names than the filter has bits.
    const auto name = [](int i) { return "c" + std::to_string(i); };
    std::string even;
    for (int i = 0; i < 5000; i += 2)
        even += name(i) + ",";
    const CTraceDom dom;
    dom.Set(even.c_str(), "");
    for (int i = 0; i < 5000; ++i)
        EXPECT_EQ(LogTraceIsEnabled(name(i)), i % 2 == 0) << name(i);
}

TEST(Trace, ChangesWhileThreadsAsk)
{
    const CTraceDom dom;
    dom.Set("Always,Cmd", "");
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::atomic<long> seenOn = 0;
    std::atomic<long> seenOff = 0;
    std::vector<std::thread> readers;
    const auto read = [&]
    {
        const wxString always("Always");
        const wxString never("Never");
        const wxString sometimes("Cmd");
        while (!done)
        {
            if (!LogTraceIsEnabled(always) || LogTraceIsEnabled(never))
                ++wrong;
            ++(LogTraceIsEnabled(sometimes) ? seenOn : seenOff);
        }
    };
    readers.reserve(3);
    for (int i = 0; i < 3; ++i)
        readers.emplace_back(read);
    bool on = false;
    for (int i = 0; i < 100 || seenOn == 0 || seenOff == 0; ++i, on = !on)
        dom.Set("Always", on ? "Cmd" : "");
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(wrong, 0);
}
