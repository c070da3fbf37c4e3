// SPDX-License-Identifier: Apache-2.0
//
// The question whether a component is traced is answered in two stages. Nearly
// every component is off; a table of bits finds that out without a lock: each
// name in the set of traced components sets the bit of its hash, and a clear
// bit means "off". A set bit may belong to another name, so the set itself
// decides then.

#include "kza_core/Trace.h"

#include "base/Bytes.h"
#include "base/Hash.h"
#include "domain/KeyObservers.h"
#include "kza_core/Dom.h"
#include "log/ProcessLog.h"
#include "log/TraceSet.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>

namespace KzaCore
{

namespace
{

constexpr std::size_t kWordBits = 64;
constexpr std::size_t kFilterWords = 16;
std::atomic<std::uint64_t> s_filter[kFilterWords];

using TraceSetPtr = std::shared_ptr<const CTraceSet>;

// Never destroyed, because a thread may trace while the process ends.
TraceSetPtr& Published()
{
    static auto& published =
        *new TraceSetPtr(std::make_shared<const CTraceSet>());
    return published;
}

// The number of a name's bit.
std::size_t BitOf(std::wstring_view name)
{
    const auto* const bytes = reinterpret_cast<const char*>(name.data());
    return HashBytes({bytes, name.size() * sizeof(wchar_t)}) %
           (kFilterWords * kWordBits);
}

void Publish(const CTraceSet& set)
{
    std::atomic_store(&Published(), std::make_shared<const CTraceSet>(set));

    std::uint64_t filter[kFilterWords] = {};
    for (const std::wstring& name : set.Names())
    {
        const std::size_t bit = BitOf(name);
        filter[bit / kWordBits] |= std::uint64_t{1} << (bit % kWordBits);
    }
    for (std::size_t i = 0; i < kFilterWords; ++i)
        s_filter[i].store(set.HasAll() ? ~std::uint64_t{0} : filter[i],
                          std::memory_order_relaxed);
}

void RefreshTrace(const CDom* root)
{
    wxString list;
    if (root != nullptr)
        list = root->GetWxString(DomKey::kTrace) + "," +
               root->GetWxString(DomKey::kTraceMore);
    Publish(CTraceSet(CharactersOf(list)));
}

constexpr std::string_view kKeys[] = {DomKey::kTrace, DomKey::kTraceMore};
const CKeyObserver s_observer(kKeys, RefreshTrace);

} // namespace

bool LogTraceIsEnabled(const wxString& component)
{
    const std::wstring_view name = CharactersOf(component);
    const std::size_t bit = BitOf(name);
    const std::uint64_t word =
        s_filter[bit / kWordBits].load(std::memory_order_relaxed);
    return ((word >> (bit % kWordBits)) & 1U) != 0 &&
           std::atomic_load(&Published())->Has(name);
}

void LogTrace(const wxString& component,
              const char* file,
              int line,
              const char* function,
              const wxString& text)
{
    const CLogPosition position = {file, line, function};
    ProcessLog().Write({ELogLevel::Trace, CharactersOf(component),
                        CharactersOf(text), std::time(nullptr), &position});
}

} // namespace KzaCore
