// SPDX-License-Identifier: Apache-2.0
//
// Hashing of names that somebody else has chosen.
//
// Threads: any.

#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace KzaCore
{

/// A number that nobody outside can know; keeps an archive from choosing names
/// that all fall into one slot.
///
/// \param address  Of any object.
[[nodiscard]] inline std::uint64_t NewHashSeed(const void* address)
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(now.count()) * 0x9E3779B97F4A7C15ULL ^
           reinterpret_cast<std::uintptr_t>(address);
}

[[nodiscard]] inline std::uint64_t MixBits(std::uint64_t h)
{
    h ^= h >> 32;
    h *= 0xD6E8FEB86659FD93ULL;
    h ^= h >> 29;
    return h;
}

[[nodiscard]] inline std::uint64_t HashName(std::string_view name,
                                            std::uint64_t seed)
{
    std::uint64_t h = seed ^ name.size();
    while (name.size() >= sizeof h)
    {
        std::uint64_t word = 0;
        std::memcpy(&word, name.data(), sizeof word);
        h = MixBits((h ^ word) + seed);
        name.remove_prefix(sizeof word);
    }
    std::uint64_t rest = 0;
    if (!name.empty())
        std::memcpy(&rest, name.data(), name.size());
    return MixBits(MixBits((h ^ rest) + seed));
}

} // namespace KzaCore
