// SPDX-License-Identifier: Apache-2.0
//
// A set of traced components, parsed from the text of the settings.
//
// Threads: any.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KzaCore
{

/// Never changes once made.
class CTraceSet
{
public:
    CTraceSet() = default;

    /// \param list  Names separated by commas, blanks around them left out;
    ///              `*` stands for every component.
    explicit CTraceSet(std::wstring_view list);

    [[nodiscard]] bool Has(std::wstring_view component) const;

    [[nodiscard]] bool HasAll() const { return m_all; }
    [[nodiscard]] const std::vector<std::wstring>& Names() const
    {
        return m_names;
    }

private:
    std::vector<std::wstring> m_names; // sorted
    bool m_all = false;
};

} // namespace KzaCore
