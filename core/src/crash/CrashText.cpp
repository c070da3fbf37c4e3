// SPDX-License-Identifier: Apache-2.0
//
// Composing text without allocating memory or taking a lock.

#include "crash/CrashText.h"

#include <cstring>

namespace KzaCore
{

namespace
{

constexpr std::int64_t kSecondsPerDay = 86400;

struct CDate
{
    unsigned year;
    unsigned month;
    unsigned day;
};

// The calendar date of a day. The C library's own conversion may take a lock.
// Years begin in March in this calculation, so that the leap day is the last
// day of a year; an era has 400 years.
CDate DateOfDay(std::int64_t daysSinceEpoch)
{
    const std::int64_t days = daysSinceEpoch + 719468; // since 0000-03-01
    const std::int64_t era = days / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) /
        365;
    const unsigned dayOfYear =
        dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned monthFromMarch = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    const unsigned month =
        monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const auto year = static_cast<unsigned>(yearOfEra + era * 400);
    return {month <= 2 ? year + 1 : year, month, day};
}

} // namespace

CCrashText::CCrashText(char* buffer, std::size_t size)
    : m_buffer(buffer), m_size(size)
{
    m_buffer[0] = '\0';
}

CCrashText& CCrashText::Add(const char* text)
{
    return Add(text, std::strlen(text));
}

CCrashText& CCrashText::Add(const char* text, std::size_t length)
{
    const std::size_t room = m_size - 1 - m_length;
    const std::size_t count = length < room ? length : room;
    std::memcpy(m_buffer + m_length, text, count);
    m_length += count;
    m_buffer[m_length] = '\0';
    return *this;
}

CCrashText& CCrashText::AddNumber(long long number)
{
    char digits[24];
    char* first = digits + sizeof(digits);
    auto rest = static_cast<unsigned long long>(number);
    if (number < 0)
        rest = 0 - rest;
    do
    {
        *--first = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (number < 0)
        *--first = '-';
    return Add(first,
               static_cast<std::size_t>(digits + sizeof(digits) - first));
}

CCrashText& CCrashText::AddPadded(unsigned number, unsigned digits)
{
    unsigned limit = 10;
    for (unsigned i = 1; i < digits; i++)
    {
        if (number < limit)
            Add("0");
        limit *= 10;
    }
    return AddNumber(number);
}

CCrashText& CCrashText::AddHex(std::uint64_t number)
{
    Add("0x");
    int shift = 60;
    while (shift > 0 && number >> static_cast<unsigned>(shift) == 0)
        shift -= 4;
    for (; shift >= 0; shift -= 4)
    {
        const auto digit =
            static_cast<unsigned>(number >> static_cast<unsigned>(shift)) & 15U;
        Add(&"0123456789abcdef"[digit], 1);
    }
    return *this;
}

CCrashText& CCrashText::AddTime(std::int64_t secondsSinceEpoch)
{
    const CDate date = DateOfDay(secondsSinceEpoch / kSecondsPerDay);
    const auto second =
        static_cast<unsigned>(secondsSinceEpoch % kSecondsPerDay);
    AddPadded(date.year, 4).Add("-");
    AddPadded(date.month, 2).Add("-");
    AddPadded(date.day, 2).Add("T");
    AddPadded(second / 3600, 2).Add(":");
    AddPadded(second / 60 % 60, 2).Add(":");
    return AddPadded(second % 60, 2).Add("Z");
}

} // namespace KzaCore
