// SPDX-License-Identifier: Apache-2.0
//
// The agent in the locales that a host may have or lack.

#include "support/Host.h"

#include <gtest/gtest.h>

#include <regex>

using namespace TestSupport;

namespace
{

// What a tool prints that shows texts, and what it says on standard error.
CProcessResult RunIn(const char* locale, const char* language)
{
    const CHost host(false);
    CProcessOptions options;
    options.env = {{"LC_ALL", locale}, {"LANGUAGE", language}};
    return host.RunTool("tool",
                        "return { main = function()\n"
                        "  dom:Set('text', '\\195\\164')\n"
                        "  print(dom:Get('text'), os.setlocale())\n"
                        "end }\n",
                        {}, options);
}

} // namespace

TEST(Locale, IsAdoptedInSilenceWhereTheHostHasIt)
{
    for (const char* locale : {"C", "POSIX", "C.UTF-8"})
        for (const char* language : {"", "de:fr"})
        {
            SCOPED_TRACE(std::string(locale) + " " + language);
            const CProcessResult result = RunIn(locale, language);
            EXPECT_EQ(result.status, 0);
            const std::string name =
                std::string(locale) == "POSIX" ? "C" : locale;
            EXPECT_EQ(result.out, "\u00e4\t" + name + "\n");
            EXPECT_EQ(result.err, "");
        }
}

TEST(Locale, IsAWarningWhereTheHostLacksIt)
{
    for (const char* locale : {"xx_XX.UTF-8", "en_XX.UTF-8", "nonsense"})
    {
        SCOPED_TRACE(locale);
        const CProcessResult result = RunIn(locale, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "\u00e4\tC\n");
        // The stamp is chosen before the locale.
        const std::regex expected(
            R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: )"
            R"(Warning: Cannot set locale to language [^\n]*\n)");
        EXPECT_TRUE(std::regex_match(result.err, expected)) << result.err;
    }
}
