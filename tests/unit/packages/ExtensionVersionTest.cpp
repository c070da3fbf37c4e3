// SPDX-License-Identifier: Apache-2.0

#include "packages/ExtensionVersion.h"

#include "AgentApp.h"

#include "support/CollectedLog.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/mstream.h>

#include <cstdlib>
#include <string>
#include <utility>

using namespace TestSupport;

namespace
{

bool Find(const std::string& bytes, wxString& rest)
{
    wxMemoryInputStream text(bytes.data(), bytes.size());
    return FindVersionLine(text, rest);
}

struct SLine
{
    const char* rest;
    bool good;
    int major, minor, patch, build;
};

constexpr SLine kLines[] = {
    {" 12.0.0-2932", true, 12, 0, 0, 2932},
    {"12.0.0-1 anything", true, 12, 0, 0, 1},
    {" 12.1.0-7", true, 12, 1, 0, 7},
    {" 12.0.0-0", true, 12, 0, 0, 0},
    {" +12.0.0-1", true, 12, 0, 0, 1},
    {" -12.0.0-1", true, -12, 0, 0, 1},
    {" 12. 0. 0- 1", true, 12, 0, 0, 1},
    {" 12.0.0--1", true, 12, 0, 0, -1},
    {" 12.0.0", false, 0, 0, 0, 0},
    {" 12.0.0 -7", false, 0, 0, 0, 0},
    {" 12 .0.0-7", false, 0, 0, 0, 0},
    {"", false, 0, 0, 0, 0},
    {" twelve", false, 0, 0, 0, 0},
};

TEST(ExtensionVersion, FourNumbersAreNeeded)
{
    for (const SLine& line : kLines)
    {
        SCOPED_TRACE(line.rest);
        SExtensionVersion version;
        EXPECT_EQ(ParseExtensionVersion(line.rest, version), line.good);
        if (!line.good)
            continue;
        EXPECT_EQ(version.major, line.major);
        EXPECT_EQ(version.minor, line.minor);
        EXPECT_EQ(version.patch, line.patch);
        EXPECT_EQ(version.build, line.build);
    }
}

TEST(ExtensionVersion, TheFirstVersionLineCounts)
{
    wxString rest;
    EXPECT_TRUE(Find("version: 1\nversion: 12.0.0-1\n", rest));
    EXPECT_EQ(rest, " 1");
    EXPECT_TRUE(Find("a\n\n#\nVersion: 9\n version: 8\nversion:7\n", rest));
    EXPECT_EQ(rest, "7");
}

TEST(ExtensionVersion, AnyLineEndEndsTheLine)
{
    wxString rest;
    for (const char* text : {"x\nversion: 1\ny", "x\r\nversion: 1\r\ny",
                             "x\rversion: 1\ry", "x\nversion: 1"})
    {
        SCOPED_TRACE(text);
        EXPECT_TRUE(Find(text, rest));
        EXPECT_EQ(rest, " 1");
    }
}

TEST(ExtensionVersion, AByteOrderMarkNamesTheEncoding)
{
    using namespace std::string_literals;
    wxString rest;
    EXPECT_TRUE(Find("\xEF\xBB\xBFversion: 1\n", rest));
    EXPECT_EQ(rest, " 1");

    std::string utf16 = "\xFF\xFE"s;
    for (const char c : "version: 2\n"s)
        utf16 += {c, '\0'};
    EXPECT_TRUE(Find(utf16, rest));
    EXPECT_EQ(rest, " 2");
}

TEST(ExtensionVersion, LinesBeforeMayHoldAnything)
{
    using namespace std::string_literals;
    std::string bytes;
    for (int c = 0; c < 256; ++c)
        bytes += static_cast<char>(c);
    for (const std::string& before :
         {"caf\xe9\n"s, "\xff\xff\xff\n"s, "x\xe2\x82\n"s, "a\0b\n"s,
          "d\xc3\xbc\ncaf\xe9\n"s, "x" + bytes + "\n",
          std::string(100000, 'x') + "\n"})
    {
        SCOPED_TRACE(before.substr(0, 20));
        wxString rest;
        EXPECT_TRUE(Find(before + "version: 12.0.0-1\n", rest));
        EXPECT_EQ(rest, " 12.0.0-1");
    }
}

// In a child, which an application object changes for good.
TEST(ExtensionVersionDeathTest, TheAnswersAreTheSameWhenNothingIsLogged)
{
    const CTempDir dir;
    const std::pair<const char*, bool> cases[] = {
        {"version: 12.0.0-1", true},
        {"version: 12.0.1-1", false},
        {"version: 12.0.0", false},
        {"", false},
    };
    const auto answersAreRight = [&]
    {
        CAgentApp app;
        CCollectedLog log;
        wxLog::SetLogLevel(wxLOG_Error);
        for (const auto& [line, good] : cases)
        {
            WriteFile(dir.File("a.kze.version"), line);
            if (app.ExtensionVersionIsOK(dir.File("a.kze")) != good)
                return false;
        }
        return !app.ExtensionVersionIsOK(dir.File("b.kze")) &&
               log.m_texts.empty();
    };
    EXPECT_EXIT(std::_Exit(answersAreRight() ? 7 : 1),
                testing::ExitedWithCode(7), "");
}

TEST(ExtensionVersion, WithoutAVersionLineThereIsNone)
{
    wxString rest;
    for (const char* text : {"", "\n", "Version: 12.0.0-1\n", "version 12\n"})
    {
        SCOPED_TRACE(text);
        EXPECT_FALSE(Find(text, rest));
    }
}

} // namespace
