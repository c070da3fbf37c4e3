// SPDX-License-Identifier: Apache-2.0

#include "packages/SideFile.h"

#include "support/Heap.h"
#include "support/InChild.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <sys/stat.h>

using namespace TestSupport;
using namespace std::string_literals;

// Shown when an expectation fails.
static std::ostream& operator<<(std::ostream& out, ESideFile answer)
{
    constexpr const char* kNames[] = {"missing", "no version line", "malformed",
                                      "good"};
    return out << kNames[static_cast<int>(answer)];
}

namespace
{

class SideFile : public ::testing::Test
{
protected:
    [[nodiscard]] ESideFile Read()
    {
        return ReadSideFile(m_path, KzaCore::EOwnerRule::Ignore, m_version);
    }

    [[nodiscard]] ESideFile Read(const std::string& content)
    {
        WriteFile(m_path, content);
        return Read();
    }

    // The first number of the first version line, 0 when it cannot be had.
    [[nodiscard]] int MajorOf(const std::string& content)
    {
        return Read(content) == ESideFile::Good ? m_version.major : 0;
    }

    CTempDir m_dir;
    std::string m_path = m_dir.File("a.kze.version");
    CExtensionVersion m_version;
};

TEST_F(SideFile, FourNumbersAreAVersion)
{
    const struct
    {
        const char* rest; // of the line
        int major, minor, patch;
    } cases[] = {
        {" 12.0.0-2932", 12, 0, 0},  {"12.3.4-1 anything", 12, 3, 4},
        {" 12.0.0-0", 12, 0, 0},     {" +12.0.0-1", 12, 0, 0},
        {" -12.0.-7-1", -12, 0, -7}, {"\t12. 0.\v0- 1", 12, 0, 0},
        {" 12.0.0--1", 12, 0, 0},    {" 012.0.00-1x", 12, 0, 0},
        {" 12.0.0-1.5", 12, 0, 0},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.rest);
        EXPECT_EQ(Read("version:"s + test.rest), ESideFile::Good);
        EXPECT_EQ(m_version.major, test.major);
        EXPECT_EQ(m_version.minor, test.minor);
        EXPECT_EQ(m_version.patch, test.patch);
    }
}

TEST_F(SideFile, FewerNumbersAreMalformed)
{
    for (const char* rest :
         {"", " twelve", " 12.0.0", " 12.0.0 -7", " 12 .0.0-7", " 12.0.0-",
          " 12..0-7", " +-12.0.0-7", " 12.0.0-\n7", " 12.0.\r0-7", " 12,0.0-7",
          " 12.0.0\xe2\x80\x93"
          "7"})
        EXPECT_EQ(Read("version:"s + rest), ESideFile::Malformed) << rest;
}

// 4294967308 is 12 in 32 bits.
TEST_F(SideFile, ANumberThatDoesNotFitIsTheNearestThatDoes)
{
    const struct
    {
        const char* line;
        int major, minor, patch;
    } cases[] = {
        {"version: 4294967308.0.0-1", INT_MAX, 0, 0},
        {"version: 12.4294967296.0-1", 12, INT_MAX, 0},
        {"version: 12.0.-4294967296-1", 12, 0, -INT_MAX},
        {"version: 99999999999999999999999.0.0-1", INT_MAX, 0, 0},
        {"version: 12.0.0-99999999999999999999999", 12, 0, 0},
    };
    for (const auto& test : cases)
    {
        SCOPED_TRACE(test.line);
        EXPECT_EQ(Read(test.line), ESideFile::Good);
        EXPECT_EQ(m_version.major, test.major);
        EXPECT_EQ(m_version.minor, test.minor);
        EXPECT_EQ(m_version.patch, test.patch);
    }
}

TEST_F(SideFile, TheFirstVersionLineCounts)
{
    EXPECT_EQ(MajorOf("version: 1.0.0-1\nversion: 12.0.0-1\n"), 1);
    EXPECT_EQ(MajorOf("a\n\n#\nVersion: 9.0.0-1\n version: 8.0.0-1\n"
                      "versionversion: 7.0.0-1\nversion:6.0.0-1\n"),
              6);
    EXPECT_EQ(Read("version: x\nversion: 12.0.0-1\n"), ESideFile::Malformed);
}

TEST_F(SideFile, AnyLineEndEndsTheLine)
{
    for (const char* text :
         {"x\nversion: 1.0.0-1\ny", "x\r\nversion: 1.0.0-1\r\ny",
          "x\rversion: 1.0.0-1\ry", "x\nversion: 1.0.0-1"})
        EXPECT_EQ(MajorOf(text), 1) << text;
}

// An ASCII text in UTF-16 (width 2) or UTF-32 (width 4), behind its byte-order
// mark.
std::string Wide(const std::string& text, std::size_t width, bool isBigEndian)
{
    std::string unit(width, '\0');
    char& low = isBigEndian ? unit.back() : unit.front();
    char& next = isBigEndian ? unit[width - 2] : unit[1];
    low = '\xFF';
    next = '\xFE';
    std::string wide = unit;
    next = '\0';
    for (const char c : text)
    {
        low = c;
        wide += unit;
    }
    return wide;
}

TEST_F(SideFile, AByteOrderMarkNamesTheEncoding)
{
    const std::string text = "x\nversion: 1.0.0-1\n";
    EXPECT_EQ(MajorOf("\xEF\xBB\xBF"s + text.substr(2)), 1);
    EXPECT_EQ(MajorOf(Wide(text, 2, false)), 1);
    EXPECT_EQ(MajorOf(Wide(text, 2, true)), 1);
    EXPECT_EQ(MajorOf(Wide(text, 4, false)), 1);
    EXPECT_EQ(MajorOf(Wide(text, 4, true)), 1);

    // U+7600 has the byte of a "v" in UTF-16.
    EXPECT_EQ(Read("\xFF\xFE\0vversion: 1.0.0-1"s), ESideFile::NoVersionLine);
}

TEST_F(SideFile, LinesBeforeMayHoldAnything)
{
    std::string bytes;
    for (int c = 0; c < 256; ++c)
        bytes += static_cast<char>(c);
    for (const std::string& before :
         {"caf\xe9\n"s, "\xff\xff\xff\n"s, "x\xe2\x82\n"s, "a\0b\n"s,
          "d\xc3\xbc\ncaf\xe9\n"s, "x" + bytes + "\n",
          std::string(100000, 'x') + "\n"})
        EXPECT_EQ(MajorOf(before + "version: 12.0.0-1\n"), 12)
            << before.substr(0, 20);
}

TEST_F(SideFile, WithoutAVersionLineThereIsNone)
{
    for (const char* text : {"", " ", "\n", "versio", "Version: 12.0.0-1\n",
                             "version 12.0.0-1\n", "\xFF\xFE", "\xEF"})
        EXPECT_EQ(Read(text), ESideFile::NoVersionLine) << text;
}

TEST_F(SideFile, OnlyARegularFileIsThere)
{
    EXPECT_EQ(Read(), ESideFile::Missing);
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(Read(), ESideFile::Missing);
    std::filesystem::remove(m_path);
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_EQ(Read(), ESideFile::Missing);
}

// A file of the system's that is regular by its mode and fails when it is read.
TEST_F(SideFile, AFileThatCannotBeReadHoldsNoVersion)
{
    CExtensionVersion version;
    EXPECT_EQ(
        ReadSideFile("/proc/self/mem", KzaCore::EOwnerRule::Ignore, version),
        ESideFile::NoVersionLine);
}

TEST_F(SideFile, ItsSizeDoesNotCount)
{
    constexpr long kMostKiB = 16384;
    const int status = InChild(
        [&]
        {
            const long before = PeakKiB();
            WriteFile(m_path, "version: 12.0.0-1\n");
            std::filesystem::resize_file(m_path, std::uintmax_t(1) << 36);
            EXPECT_EQ(Read(), ESideFile::Good);

            // One line of 256 MiB.
            WriteFile(m_path, "x");
            std::filesystem::resize_file(m_path, std::uintmax_t(1) << 28);
            EXPECT_EQ(Read(), ESideFile::NoVersionLine);
            EXPECT_LT(PeakKiB(), before + kMostKiB);
        });
    EXPECT_EQ(status, 0);
}

} // namespace
