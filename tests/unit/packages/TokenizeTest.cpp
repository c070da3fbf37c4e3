// SPDX-License-Identifier: Apache-2.0

#include "Tokenize.h"

#include <gtest/gtest.h>

namespace
{

std::list<wxString> Split(const wxString& text, const wchar_t* delimiters)
{
    std::list<wxString> out;
    Tokenize(out, text, delimiters);
    return out;
}

using List = std::list<wxString>;

TEST(Tokenize, SkipsEmptyRuns)
{
    EXPECT_EQ(Split(";;a;;b;", L";"), (List{"a", "b"}));
}

TEST(Tokenize, EmptyTextAppendsNothing)
{
    EXPECT_EQ(Split("", L";"), List{});
    EXPECT_EQ(Split(";;;", L";"), List{});
}

TEST(Tokenize, TrimsNothing)
{
    EXPECT_EQ(Split(" a ; b", L";"), (List{" a ", " b"}));
}

TEST(Tokenize, AnyOfTheDelimitersSeparates)
{
    EXPECT_EQ(Split("a,b;c", L";,"), (List{"a", "b", "c"}));
}

TEST(Tokenize, AppendsToWhatIsThere)
{
    List out{"first"};
    Tokenize(out, "second", L";");
    EXPECT_EQ(out, (List{"first", "second"}));
}

} // namespace
