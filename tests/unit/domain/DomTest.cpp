// SPDX-License-Identifier: Apache-2.0
//
// The domain's values: what is stored, read, removed and listed.

#include "kza_core/Dom.h"

#include "support/DomPtr.h"

#include <gtest/gtest.h>

#include <limits>

using namespace KzaCore;
using TestSupport::DomPtr;
using TestSupport::NewDom;

TEST(Dom, NewSaysThatItMadeOne)
{
    bool created = false;
    const DomPtr dom(CDom::New("name", nullptr, &created, false));
    EXPECT_NE(dom, nullptr);
    EXPECT_TRUE(created);
}

TEST(Dom, UnsetKeysReadAsEmptyAndLeavePresetValues)
{
    const DomPtr dom = NewDom();
    bool flag = true;
    long long number = 7;
    std::string text = "preset";
    EXPECT_EQ(dom->Get("a"), "");
    EXPECT_EQ(dom->GetWxString("a"), "");
    EXPECT_FALSE(dom->Get("a", flag));
    EXPECT_FALSE(dom->Get("a", number));
    EXPECT_FALSE(dom->Get("a", text));
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(text, "preset");
    EXPECT_TRUE(dom->Keys().empty());
}

TEST(Dom, EachSetterStoresItsType)
{
    const DomPtr dom = NewDom();
    dom->Set("string", std::string("s"));
    dom->Set("chars", "c");
    dom->Set("bool", true);
    dom->Set("integer", -5LL);
    dom->SetWx("wx", wxString::FromUTF8("\xc3\xa4"));
    dom->SetWx("wx.integer", 6LL);

    bool flag = false;
    long long number = 0;
    EXPECT_EQ(dom->Get("string"), "s");
    EXPECT_EQ(dom->Get("chars"), "c");
    EXPECT_TRUE(dom->Get("bool", flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(dom->Get("integer", number));
    EXPECT_EQ(number, -5);
    EXPECT_EQ(dom->Get("wx"), "\xc3\xa4");
    EXPECT_EQ(dom->GetWxString("wx"), wxString::FromUTF8("\xc3\xa4"));
    EXPECT_TRUE(dom->Get("wx.integer", number));
    EXPECT_EQ(number, 6);
}

TEST(Dom, ReadOfAnotherTypeBehavesAsUnset)
{
    const DomPtr dom = NewDom();
    dom->Set("s", "true");
    dom->Set("b", true);
    dom->Set("i", 1LL);
    bool flag = false;
    long long number = 9;
    std::string text = "preset";
    for (const char* const key : {"s", "i"})
        EXPECT_FALSE(dom->Get(key, flag)) << key;
    for (const char* const key : {"s", "b"})
        EXPECT_FALSE(dom->Get(key, number)) << key;
    for (const char* const key : {"b", "i"})
    {
        EXPECT_FALSE(dom->Get(key, text)) << key;
        EXPECT_EQ(dom->Get(key), "") << key;
        EXPECT_EQ(dom->GetWxString(key), "") << key;
    }
    EXPECT_FALSE(flag);
    EXPECT_EQ(number, 9);
    EXPECT_EQ(text, "preset");
}

TEST(Dom, LaterValueReplacesEarlierOfWhateverType)
{
    const DomPtr dom = NewDom();
    bool flag = false;
    long long number = 0;
    dom->Set("k", "text");
    dom->Set("k", true);
    EXPECT_TRUE(dom->Get("k", flag));
    EXPECT_EQ(dom->Get("k"), "");
    dom->Set("k", 3LL);
    EXPECT_FALSE(dom->Get("k", flag));
    EXPECT_TRUE(dom->Get("k", number));
    dom->Set("k", "again");
    EXPECT_EQ(dom->Get("k"), "again");
    EXPECT_EQ(dom->Keys().size(), 1U);
}

TEST(Dom, EmptyStringIsAValue)
{
    const DomPtr dom = NewDom();
    std::string text = "preset";
    dom->Set("k", "");
    EXPECT_TRUE(dom->Get("k", text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(dom->Keys(), std::vector<std::string>{"k"});
}

TEST(Dom, IntegersKeepAll64Bits)
{
    const DomPtr dom = NewDom();
    for (const long long value : {std::numeric_limits<long long>::min(),
                                  std::numeric_limits<long long>::max()})
    {
        long long out = 0;
        dom->Set("k", value);
        EXPECT_TRUE(dom->Get("k", out));
        EXPECT_EQ(out, value);
    }
}

TEST(Dom, KeysAndValuesAreBytes)
{
    const DomPtr dom = NewDom();
    const std::string key("a\0b", 3);
    const std::string value("\xff\0\xfe", 3);
    dom->Set(key, value);
    dom->Set(std::string(), "empty key");
    EXPECT_EQ(dom->Get(key), value);
    EXPECT_EQ(dom->Get("a"), "");
    EXPECT_EQ(dom->Get(""), "empty key");
}

TEST(Dom, WxReadOfBytesThatAreNotUtf8LosesNothing)
{
    const DomPtr dom = NewDom();
    dom->Set("k", "caf\xe9");
    EXPECT_EQ(dom->GetWxString("k"), wxString(L"caf\u00e9"));
}

TEST(Dom, RemovedKeyIsUnset)
{
    const DomPtr dom = NewDom();
    dom->Set("k", "v");
    dom->Remove("k");
    dom->Remove("k");
    dom->Remove("never");
    EXPECT_EQ(dom->Get("k"), "");
    EXPECT_TRUE(dom->Keys().empty());
    dom->Set("k", "again");
    EXPECT_EQ(dom->Get("k"), "again");
}

TEST(Dom, KeysAreSortedByByteAndFilteredByPrefix)
{
    const DomPtr dom = NewDom();
    for (const char* const key : {"b.2", "a", "b.10", "b", "B", "\xc3\xa4"})
        dom->Set(key, true);
    const std::vector<std::string> all = {"B",    "a",   "b",
                                          "b.10", "b.2", "\xc3\xa4"};
    const std::vector<std::string> some = {"b.10", "b.2"};
    EXPECT_EQ(dom->Keys(), all);
    EXPECT_EQ(dom->Keys("b."), some);
    EXPECT_TRUE(dom->Keys("c").empty());
}

TEST(Dom, HoldsTenMegabytes)
{
    const DomPtr dom = NewDom();
    const std::string value(10 * 1024 * 1024, 'x');
    dom->Set("k", value);
    EXPECT_EQ(dom->Get("k"), value);
}

TEST(Dom, ManyKeysAreAllFound)
{
    const DomPtr dom = NewDom();
    constexpr long long kCount = 20000;
    for (long long i = 0; i < kCount; ++i)
        dom->Set("key." + std::to_string(i), i);
    for (long long i = 0; i < kCount; i += 2)
        dom->Remove("key." + std::to_string(i));
    for (long long i = 0; i < kCount; ++i)
    {
        long long value = -1;
        EXPECT_EQ(dom->Get("key." + std::to_string(i), value), i % 2 == 1);
        EXPECT_EQ(value, i % 2 == 1 ? i : -1);
    }
    EXPECT_EQ(dom->Keys().size(), static_cast<size_t>(kCount / 2));
}
