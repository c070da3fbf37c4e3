// SPDX-License-Identifier: Apache-2.0
//
// Text that is composed in a buffer of the caller, for code that may not
// allocate memory. Text beyond the buffer's size is cut off; the text always
// ends in a zero.
//
// Threads: one at a time. Async-signal-safe.

#pragma once

#include <cstddef>
#include <cstdint>

namespace KzaCore
{

class CCrashText
{
public:
    /// \param buffer  Not owned.
    /// \param size    Its bytes, at least one.
    CCrashText(char* buffer, std::size_t size);

    CCrashText& Add(const char* text);
    CCrashText& Add(const char* text, std::size_t length);
    CCrashText& AddNumber(long long number);

    /// Adds a number with at least `digits` digits, zeros in front.
    CCrashText& AddPadded(unsigned number, unsigned digits);
    CCrashText& AddHex(std::uint64_t number);

    /// Adds a time in UTC, as in 2026-11-21T05:29:11Z.
    CCrashText& AddTime(std::int64_t secondsSinceEpoch);

    [[nodiscard]] const char* Text() const { return m_buffer; }
    [[nodiscard]] std::size_t Length() const { return m_length; }

private:
    char* m_buffer;
    std::size_t m_size;
    std::size_t m_length = 0;
};

} // namespace KzaCore
