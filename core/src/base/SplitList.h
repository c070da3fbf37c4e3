// SPDX-License-Identifier: Apache-2.0
//
// Splitting a list that is written as one text, such as a search path.
//
// Threads: any.

#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

namespace KzaCore
{

/// The elements of a list, in order: each longest run of characters that are no
/// delimiters. So there are no empty elements; nothing is trimmed.
///
/// \tparam TView      std::string_view or std::wstring_view.
/// \param list        Its text outlives the result, whose elements are parts
///                    of it.
/// \param delimiters  Each of its characters ends an element.
template <typename TView>
[[nodiscard]] std::vector<TView> SplitList(TView list, TView delimiters)
{
    std::vector<TView> elements;
    while (!list.empty())
    {
        const std::size_t end =
            std::min(list.find_first_of(delimiters), list.size());
        if (end > 0)
            elements.push_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return elements;
}

} // namespace KzaCore
