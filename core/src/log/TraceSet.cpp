// SPDX-License-Identifier: Apache-2.0

#include "log/TraceSet.h"

#include "base/Bytes.h"
#include "base/SplitList.h"
#include "domain/KeyObservers.h"
#include "kza_core/Dom.h"
#include "kza_core/Trace.h"

#include <algorithm>
#include <memory>

namespace KzaCore
{

namespace TraceDetail
{

std::atomic<std::uint64_t> g_filter[kFilterWords];

} // namespace TraceDetail

namespace
{

using CTraceSetPtr = std::shared_ptr<const CTraceSet>;

// Never destroyed: a thread may ask while the process ends.
CTraceSetPtr& Published()
{
    static auto& published =
        *new CTraceSetPtr(std::make_shared<const CTraceSet>());
    return published;
}

std::wstring_view Trim(std::wstring_view name)
{
    constexpr std::wstring_view kBlanks = L" \t\r\n";
    const std::size_t first = name.find_first_not_of(kBlanks);
    if (first == std::wstring_view::npos)
        return {};
    return name.substr(first, name.find_last_not_of(kBlanks) - first + 1);
}

void Publish(const CTraceSet& set)
{
    std::atomic_store(&Published(), std::make_shared<const CTraceSet>(set));

    std::uint64_t filter[TraceDetail::kFilterWords] = {};
    for (const std::wstring& name : set.Names())
    {
        const std::uint32_t hash =
            TraceDetail::Hash(name.data(), name.length());
        filter[hash / 64] |= std::uint64_t(1) << (hash % 64);
    }
    for (std::size_t i = 0; i < TraceDetail::kFilterWords; ++i)
        TraceDetail::g_filter[i].store(set.HasAll() ? ~std::uint64_t(0)
                                                    : filter[i],
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

CTraceSet::CTraceSet(std::wstring_view list)
{
    for (const std::wstring_view element :
         SplitList<std::wstring_view>(list, L","))
    {
        const std::wstring_view name = Trim(element);
        if (name == L"*")
            m_all = true;
        else if (!name.empty())
            m_names.emplace_back(name);
    }
    std::sort(m_names.begin(), m_names.end());
}

bool CTraceSet::Has(std::wstring_view component) const
{
    return m_all || std::binary_search(m_names.begin(), m_names.end(),
                                       component, std::less<>());
}

namespace TraceDetail
{

bool IsInSet(const wxString& component)
{
    return std::atomic_load(&Published())->Has(CharactersOf(component));
}

} // namespace TraceDetail

} // namespace KzaCore
