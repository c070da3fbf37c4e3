// SPDX-License-Identifier: Apache-2.0
//
// Comparison of the domain's keys, inline and eight bytes at a time; the last
// eight bytes may overlap the ones before. A call of memcmp() would make every
// read of the domain measurably slower.
//
// Threads: any.

#pragma once

#include "base/Hash.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KzaCore
{

/// True for equal bytes.
[[nodiscard]] inline bool IsSameKey(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    const std::size_t size = a.size();
    if (size < kWord)
        return ShortWord(a) == ShortWord(b);
    const auto differAt = [&](std::size_t at)
    {
        return WordAt<std::uint64_t>(a.data() + at) !=
               WordAt<std::uint64_t>(b.data() + at);
    };
    for (std::size_t at = 0; at < size - kWord; at += kWord)
        if (differAt(at))
            return false;
    return !differAt(size - kWord);
}

} // namespace KzaCore
