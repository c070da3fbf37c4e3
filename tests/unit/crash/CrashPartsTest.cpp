// SPDX-License-Identifier: Apache-2.0
//
// The parts of the crash handler that can be looked at without a crash.

#include "crash/CrashText.h"
#include "crash/linux/CrashMaps.h"
#include "crash/linux/CrashModules.h"

#include <gtest/gtest.h>

#include <memory>

using namespace KzaCore;

namespace
{

std::unique_ptr<CCrashMaps> Maps(const std::vector<const char*>& lines)
{
    auto maps = std::make_unique<CCrashMaps>();
    for (const char* line : lines)
        maps->AddLine(line);
    return maps;
}

const char* const kThreadStack[] = {
    "7f0000000000-7f0000001000 ---p 00000000 00:00 0 ",
    "7f0000001000-7f0000801000 rw-p 00000000 00:00 0 ",
};

} // namespace

TEST(CrashText, WritesNumbers)
{
    char buffer[256];
    CCrashText text(buffer, sizeof(buffer));
    text.AddNumber(0).Add(" ").AddNumber(-7).Add(" ");
    text.AddNumber(INT64_MIN).Add(" ").AddPadded(5, 2).Add(" ");
    text.AddPadded(123, 2).Add(" ").AddPadded(7, 4).Add(" ");
    text.AddHex(0).Add(" ").AddHex(0x7f00dead0010).Add(" ").AddHex(UINT64_MAX);
    EXPECT_STREQ(text.Text(),
                 "0 -7 -9223372036854775808 05 123 0007 0x0 0x7f00dead0010 "
                 "0xffffffffffffffff");
}

TEST(CrashText, CutsWhatDoesNotFit)
{
    char buffer[6];
    CCrashText text(buffer, sizeof(buffer));
    text.Add("abc").Add("defgh").Add("i");
    EXPECT_STREQ(buffer, "abcde");
    EXPECT_EQ(text.Length(), 5U);
}

TEST(CrashText, WritesTimesInUtc)
{
    const struct
    {
        std::int64_t seconds;
        const char* text;
    } cases[] = {
        {0, "1970-01-01T00:00:00Z"},
        {951782399, "2000-02-28T23:59:59Z"},
        {951782400, "2000-02-29T00:00:00Z"},
        {951868800, "2000-03-01T00:00:00Z"},
        {1735689599, "2024-12-31T23:59:59Z"},
        {1795238951, "2026-11-21T05:29:11Z"},
        {4107542400, "2100-03-01T00:00:00Z"},
    };
    for (const auto& one : cases)
    {
        char buffer[32];
        CCrashText text(buffer, sizeof(buffer));
        EXPECT_STREQ(text.AddTime(one.seconds).Text(), one.text);
    }
}

TEST(CrashMaps, TakesTheLinesOfTheSystem)
{
    const auto maps = Maps({
        "5581e1c00000-5581e1c01000 r--p 00000000 fe:00 12 /opt/a b/kz_agent",
        "5581e1c01000-5581e1c02000 r-xp 00001000 fe:00 12 /opt/a b/kz_agent",
        "7ffd2a9c0000-7ffd2a9e1000 rw-p 00000000 00:00 0          [stack]",
        "7ffd2a9f0000-7ffd2a9f1000 ---p 00000000 00:00 0 ",
    });
    ASSERT_EQ(maps->end() - maps->begin(), 4);
    const CCrashMapping* code = maps->begin() + 1;
    EXPECT_EQ(code->start, 0x5581e1c01000U);
    EXPECT_EQ(code->end, 0x5581e1c02000U);
    EXPECT_EQ(code->offset, 0x1000U);
    EXPECT_TRUE(code->readable);
    EXPECT_FALSE(code->writable);
    EXPECT_STREQ(maps->Name(*code), "/opt/a b/kz_agent");
    EXPECT_EQ(code->name, maps->begin()->name);
    EXPECT_STREQ(maps->Name(code[1]), "[stack]");
    EXPECT_TRUE(code[1].writable);
    EXPECT_STREQ(maps->Name(code[2]), "");
    EXPECT_FALSE(code[2].readable);
}

TEST(CrashMaps, NameOfAReplacedFileIsItsName)
{
    const auto maps =
        Maps({"7f00-7f01 r-xp 00000000 fe:00 12 /lib/libx.so.1 (deleted)"});
    EXPECT_STREQ(maps->Name(*maps->begin()), "/lib/libx.so.1");
}

TEST(CrashMaps, MemoryNotToBeDumpedIsExcluded)
{
    const auto maps = Maps({
        "10000-20000 rw-p 00000000 00:00 0 ",
        "Size:                 64 kB",
        "VmFlags: rd wr mr mw me ac dd sd ",
        "20000-30000 rw-p 00000000 00:00 0 ",
        "VmFlags: rd wr mr mw me ac sd ",
        "30000-31000 r--p 00000000 00:00 0                        [vvar]",
        "31000-32000 --xp 00000000 00:00 0                        [vsyscall]",
    });
    ASSERT_EQ(maps->end() - maps->begin(), 4);
    const bool expected[] = {true, false, true, true};
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(maps->begin()[i].excluded, expected[i]) << i;
}

TEST(CrashMaps, FindsTheMappingOfAnAddress)
{
    const auto maps = Maps({"1000-2000 r--p 0 0 0 ", "3000-4000 rw-p 0 0 0 "});
    EXPECT_EQ(maps->Find(0xfff), nullptr);
    EXPECT_EQ(maps->Find(0x1000), maps->begin());
    EXPECT_EQ(maps->Find(0x1fff), maps->begin());
    EXPECT_EQ(maps->Find(0x2000), nullptr);
    EXPECT_EQ(maps->Find(0x3fff), maps->begin() + 1);
}

TEST(CrashMaps, StackOfAnOverflowLiesAboveItsGuard)
{
    const auto maps = Maps({kThreadStack[0], kThreadStack[1]});
    const CCrashMapping* stack = maps->begin() + 1;
    EXPECT_EQ(maps->FindStack(0x7f0000400000), stack);
    EXPECT_EQ(maps->FindStack(0x7f0000000ff0), stack); // in the guard
    EXPECT_EQ(maps->FindStack(0x7efffffff000), stack); // beyond it
    EXPECT_EQ(maps->FindStack(0x7eff00000000), nullptr);
    EXPECT_EQ(maps->FindStack(0x7f0000801000), nullptr);
}

TEST(CrashModules, VersionComesFromTheFileName)
{
    const struct
    {
        const char* path;
        std::uint16_t numbers[4];
    } cases[] = {
        {"/lib/libc.so.6", {6, 0, 0, 0}},
        {"/lib/libwx_baseu-3.2.so.0.2.1", {0, 2, 1, 0}},
        {"/lib/libx.so", {0, 0, 0, 0}},
        {"/opt/kz_agent", {0, 0, 0, 0}},
        {"/lib/libx.so.1.2.3.4.5", {1, 2, 3, 4}},
        {"/lib/libx.so.beta", {0, 0, 0, 0}},
    };
    for (const auto& one : cases)
    {
        SCOPED_TRACE(one.path);
        std::uint16_t numbers[4];
        ParseVersion(VersionInName(one.path), numbers);
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(numbers[i], one.numbers[i]);
    }
}

TEST(CrashModules, VersionOfTheAgentHasFourNumbers)
{
    std::uint16_t numbers[4];
    ParseVersion("12.0.0.2932", numbers);
    EXPECT_EQ(numbers[0], 12);
    EXPECT_EQ(numbers[3], 2932);
}
