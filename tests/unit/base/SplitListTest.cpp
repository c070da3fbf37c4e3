// SPDX-License-Identifier: Apache-2.0

#include "base/SplitList.h"

#include <gtest/gtest.h>

using KzaCore::SplitList;
using std::string_view;
using Elements = std::vector<string_view>;

TEST(SplitList, EmptyElementsAreSkipped)
{
    EXPECT_EQ(SplitList<string_view>("a;b", ";"), (Elements{"a", "b"}));
    EXPECT_EQ(SplitList<string_view>(";;a;;b;", ";"), (Elements{"a", "b"}));
    EXPECT_EQ(SplitList<string_view>("", ";"), Elements{});
    EXPECT_EQ(SplitList<string_view>(";", ";"), Elements{});
}

TEST(SplitList, NothingIsTrimmed)
{
    EXPECT_EQ(SplitList<string_view>(" a ; ", ";"), (Elements{" a ", " "}));
}

TEST(SplitList, EachDelimiterEndsAnElement)
{
    EXPECT_EQ(SplitList<string_view>("a b\tc", " \t"),
              (Elements{"a", "b", "c"}));
    EXPECT_EQ(SplitList<string_view>("a;b", ""), Elements{"a;b"});
}

TEST(SplitList, WideTextsAreSplitToo)
{
    EXPECT_EQ(SplitList<std::wstring_view>(L"\u00e4,b", L","),
              (std::vector<std::wstring_view>{L"\u00e4", L"b"}));
}
