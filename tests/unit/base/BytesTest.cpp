// SPDX-License-Identifier: Apache-2.0

#include "base/Bytes.h"

#include <gtest/gtest.h>

using namespace KzaCore;

TEST(Bytes, Utf8IsDecoded)
{
    EXPECT_EQ(TextOfBytes("gr\xC3\xBC\xC3\x9F"), wxString(L"gr\u00fc\u00df"));
    EXPECT_EQ(TextOfBytes(""), wxString());
}

TEST(Bytes, WhatIsNotUtf8IsShownByteByByte)
{
    EXPECT_EQ(TextOfBytes("gr\xFC\xDF"), wxString(L"gr\u00fc\u00df"));
    EXPECT_EQ(TextOfBytes("\xC3"), wxString(L"\u00c3"));
}

TEST(Bytes, NulIsAByteLikeOthers)
{
    EXPECT_EQ(TextOfBytes({"a\0b", 3}).length(), 3U);
    EXPECT_EQ(TextOfBytes({"\xFF\0b", 3}).length(), 3U);
    EXPECT_EQ(BytesOfText(wxString("a\0b", 3)), std::string("a\0b", 3));
}
