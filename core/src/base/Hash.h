// SPDX-License-Identifier: Apache-2.0
//
// Hashes of bytes, for tables in memory. They differ from one release and
// machine to another: never store or send one.
//
// Threads: any.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace KzaCore
{

/// The bytes at a place as a number.
template <typename TWord>
inline TWord WordAt(const char* place)
{
    TWord word = 0;
    std::memcpy(&word, place, sizeof(word));
    return word;
}

/// Fewer than eight bytes as a number. Every byte is part of it, some perhaps
/// twice, in no particular order.
inline std::uint64_t ShortWord(std::string_view bytes)
{
    const std::size_t size = bytes.size();
    if (size >= 4)
        return std::uint64_t{WordAt<std::uint32_t>(bytes.data())} << 32 |
               WordAt<std::uint32_t>(bytes.data() + size - 4);
    std::uint64_t word = 0;
    for (const char c : bytes)
        word = word << 8 | static_cast<unsigned char>(c);
    return word;
}

/// The hash of some bytes. Its highest and its lowest bits are equally good.
///
/// Takes eight bytes at a time, and the last eight once more where they
/// overlap: the standard library's hash is called out of line, and taking the
/// last bytes one by one costs a branch that the processor cannot foresee. Each
/// word is multiplied and both halves of the product are folded into one, so
/// that every bit depends on all bits before.
///
/// \param seed  For bytes that come from outside: a RandomNumber(), which makes
///              it hard to choose bytes with equal hashes without knowing it.
[[nodiscard]] inline std::uint64_t HashBytes(std::string_view bytes,
                                             std::uint64_t seed = 0)
{
    __extension__ using Wide = unsigned __int128;
    const std::uint64_t factor = 0x9E3779B97F4A7C15U + 2 * seed;
    std::uint64_t hash = seed ^ bytes.size();
    const auto add = [&hash, factor](std::uint64_t word)
    {
        const Wide product = Wide{hash ^ word} * factor;
        hash = static_cast<std::uint64_t>(product) ^
               static_cast<std::uint64_t>(product >> 64);
    };
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    if (bytes.size() < kWord)
        add(ShortWord(bytes));
    else
    {
        const char* const last = bytes.data() + bytes.size() - kWord;
        for (const char* at = bytes.data(); at < last; at += kWord)
            add(WordAt<std::uint64_t>(at));
        add(WordAt<std::uint64_t>(last));
    }
    return hash;
}

} // namespace KzaCore
