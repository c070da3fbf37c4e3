// SPDX-License-Identifier: Apache-2.0
//
// The locale that the process adopts.

#include "startup/ProcessLocale.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

namespace
{

std::string CurrentLocale()
{
    return setlocale(LC_ALL, nullptr);
}

/// A variable of the environment, put back when it goes.
class CVariable
{
public:
    CVariable(const char* name, const char* value) : m_name(name)
    {
        const char* const before = std::getenv(name);
        m_isSet = before != nullptr;
        m_before = m_isSet ? before : "";
        setenv(name, value, 1);
    }
    ~CVariable()
    {
        if (m_isSet)
            setenv(m_name, m_before.c_str(), 1);
        else
            unsetenv(m_name);
    }
    CVariable(const CVariable&) = delete;
    CVariable& operator=(const CVariable&) = delete;

private:
    const char* m_name;
    bool m_isSet;
    std::string m_before;
};

} // namespace

TEST(ProcessLocale, OnlyAmericanEnglishNeedsNoTranslation)
{
    const struct
    {
        const char* messages;
        const char* language;
        bool answer;
    } cases[] = {
        {"C", nullptr, true},
        {"C", "", true},
        {"POSIX", nullptr, true},
        {"C.UTF-8", nullptr, true},
        {"C.utf8", nullptr, true},
        {"en_US", nullptr, true},
        {"en_US.UTF-8", nullptr, true},
        {"C", "de", false},
        {"en_US.UTF-8", "de:en", false},
        {"en_GB.UTF-8", nullptr, false},
        {"en_US@variant", nullptr, false},
        {"de_DE.UTF-8", nullptr, false},
        {"Catalan", nullptr, false},
        {"", nullptr, false},
    };
    for (const auto& one : cases)
        EXPECT_EQ(NeedsNoTranslation(one.messages, one.language), one.answer)
            << one.messages;
}

TEST(ProcessLocale, AdoptsTheEnvironmentsLocaleAndRestoresTheOneBefore)
{
    const CVariable all("LC_ALL", "C.UTF-8");
    const CVariable language("LANGUAGE", "");
    const std::string before = CurrentLocale();
    setlocale(LC_ALL, "C");
    {
        CProcessLocale locale;
        locale.Adopt();
        EXPECT_EQ(CurrentLocale(), "C.UTF-8");
    }
    EXPECT_EQ(CurrentLocale(), "C");
    setlocale(LC_ALL, before.c_str());
}
