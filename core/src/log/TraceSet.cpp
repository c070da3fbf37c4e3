// SPDX-License-Identifier: Apache-2.0

#include "log/TraceSet.h"

#include "base/SplitList.h"

#include <algorithm>

namespace KzaCore
{

namespace
{

std::wstring_view Trim(std::wstring_view name)
{
    constexpr std::wstring_view kBlanks = L" \t\r\n";
    const std::size_t first = name.find_first_not_of(kBlanks);
    if (first == std::wstring_view::npos)
        return {};
    return name.substr(first, name.find_last_not_of(kBlanks) - first + 1);
}

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

} // namespace KzaCore
