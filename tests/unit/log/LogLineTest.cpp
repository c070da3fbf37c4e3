// SPDX-License-Identifier: Apache-2.0
//
// The line that one record becomes.

#include "log/LogLine.h"
#include "base/ThreadId.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>

#include <unistd.h>

using namespace KzaCore;

namespace
{

constexpr std::time_t kTime = 1800000000;

std::string Stamp(std::time_t time)
{
    std::tm parts = {};
    localtime_r(&time, &parts);
    char text[32];
    const auto length =
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return {text, length};
}

std::string Identity()
{
    return " [" + std::to_string(getpid()) + ":" +
           std::to_string(CurrentThreadId()) + "] ";
}

std::string Line(const CLogEntry& entry)
{
    return std::string(CLogLine(entry).Text());
}

std::string Shown(std::wstring_view text)
{
    std::string out(text.size() * kMaxBytesShown, '\0');
    out.resize(
        static_cast<std::size_t>(AppendShown(out.data(), text) - out.data()));
    return out;
}

std::string ShownBytes(std::string_view text)
{
    std::string out(text.size() * kMaxBytesShown, '\0');
    out.resize(
        static_cast<std::size_t>(AppendShown(out.data(), text) - out.data()));
    return out;
}

} // namespace

TEST(LogLine, EveryLevelHasItsName)
{
    const struct
    {
        ELogLevel level;
        const char* name;
    } cases[] = {
        {ELogLevel::Error, "ERROR"},     {ELogLevel::Warning, "WARNING"},
        {ELogLevel::Message, "MESSAGE"}, {ELogLevel::Info, "INFO"},
        {ELogLevel::Verbose, "VERBOSE"}, {ELogLevel::Debug, "DEBUG"},
        {ELogLevel::Trace, "TRACE"},
    };
    for (const auto& one : cases)
    {
        EXPECT_EQ(Line({one.level, L"Appl", L"a text", kTime}),
                  Stamp(kTime) + Identity() + one.name + " Appl: a text\n");
    }
}

TEST(LogLine, EmptyComponentHasAName)
{
    EXPECT_EQ(Line({ELogLevel::Info, L"", L"text", kTime}),
              Stamp(kTime) + Identity() + "INFO kza: text\n");
}

TEST(LogLine, TraceCarriesPositionWithoutDirectories)
{
    const struct
    {
        CLogPosition position;
        const char* shown;
    } cases[] = {
        {{"/src/apps/kza/service/Run.cpp", 42, "RunChunk"},
         "Run.cpp:42 RunChunk"},
        {{"Run.cpp", 0, "f"}, "Run.cpp:0 f"},
        {{"@/a/b.kze/c/d.lua", 7, "main\nchunk"}, "d.lua:7 main\\nchunk"},
        {{nullptr, -1, nullptr}, "?:-1 ?"},
        {{"", 1, ""}, "?:1 ?"},
    };
    for (const auto& one : cases)
    {
        EXPECT_EQ(
            Line({ELogLevel::Trace, L"Appl", L"text", kTime, &one.position}),
            Stamp(kTime) + Identity() + "TRACE Appl: " + one.shown + " text\n");
    }
}

TEST(LogLine, StampFollowsTheTime)
{
    for (const std::time_t time : {kTime, kTime + 1, kTime + 86400, kTime,
                                   std::time_t(0), std::time_t(951782400)})
    {
        EXPECT_EQ(Line({ELogLevel::Info, L"c", L"t", time}),
                  Stamp(time) + Identity() + "INFO c: t\n");
    }
}

TEST(LogLine, CachedStampIsTheLastOne)
{
    const std::string first = Line({ELogLevel::Info, L"c", L"t", kTime});
    const CLogLine line({ELogLevel::Info, L"c", L"t", kTime + 5},
                        CLogLine::EStamp::Cached);
    EXPECT_EQ(line.Text(), first);
}

TEST(LogLine, ThreadsHaveTheirOwnNumbers)
{
    std::string other;
    std::string otherIdentity;
    std::thread(
        [&]
        {
            other = Line({ELogLevel::Info, L"c", L"t", kTime});
            otherIdentity = Identity();
        })
        .join();
    EXPECT_NE(otherIdentity, Identity());
    EXPECT_EQ(other, Stamp(kTime) + otherIdentity + "INFO c: t\n");
}

TEST(LogLine, EntryOfAnotherThreadHasNumberZero)
{
    CLogEntry entry = {ELogLevel::Info, L"c", L"t", kTime};
    entry.ownThread = false;
    EXPECT_EQ(Line(entry), Stamp(kTime) + " [" + std::to_string(getpid()) +
                               ":0] INFO c: t\n");
}

TEST(LogLine, TextStaysOnItsLine)
{
    const struct
    {
        std::wstring_view text;
        const char* shown;
    } cases[] = {
        {L"", ""},
        {L"plain ASCII ~", "plain ASCII ~"},
        {L"a\nb", "a\\nb"},
        {L"\n\n", "\\n\\n"},
        {L"a\r\nb", "a\\r\\nb"},
        {L"tab\tstays", "tab\tstays"},
        {L"back\\slash \\n", "back\\slash \\n"},
        {L"\x1b[31m", "\\x1b[31m"},
        {std::wstring_view(L"\0x\0", 3), "\\x00x\\x00"},
        {L"\x7f\x80\x9f", "\\x7f\\x80\\x9f"},
        {L"\u00a0\u00e4\u07ff", "\u00a0\u00e4\u07ff"},
        {L"\u0800\u20ac\uffff", "\u0800\u20ac\uffff"},
        {L"\U00010000\U0001f600\U0010ffff", "\U00010000\U0001f600\U0010ffff"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(Shown(one.text), one.shown);
}

TEST(LogLine, NoCharacterIsShownAsReplacement)
{
    for (const wchar_t c :
         {wchar_t(0xd800), wchar_t(0xdfff), wchar_t(0x110000), wchar_t(-1)})
        EXPECT_EQ(Shown({&c, 1}), "\ufffd");
}

TEST(LogLine, BytesStayOnTheirLine)
{
    EXPECT_EQ(ShownBytes("a\nb\x1b\x7f\t\u00e4"), "a\\nb\\x1b\\x7f\t\u00e4");
}

TEST(LogLine, ComponentCannotForgeARecord)
{
    EXPECT_EQ(Line({ELogLevel::Info, L"a\nb", L"t", kTime}),
              Stamp(kTime) + Identity() + "INFO a\\nb: t\n");
}

TEST(LogLine, LongTextsAreWhole)
{
    const std::wstring component(3000, L'\u20ac');
    const std::wstring text(1000000, L'\x01');
    const std::string line = Line({ELogLevel::Info, component, text, kTime});
    const std::string prefix = Stamp(kTime) + Identity() + "INFO ";
    EXPECT_EQ(line.size(), prefix.size() + 3000 * 3 + 2 + 1000000 * 4 + 1);
    EXPECT_EQ(line.substr(line.size() - 9), "\\x01\\x01\n");
}

TEST(LogLine, TextsAroundTheSizeOfTheSmallRoomAreWhole)
{
    for (std::size_t length = 400; length < 600; ++length)
    {
        const std::wstring text(length, L'\U0001f600');
        const std::string line = Line({ELogLevel::Error, L"c", text, kTime});
        EXPECT_EQ(line.size(), Stamp(kTime).size() + Identity().size() + 6 + 3 +
                                   4 * length + 1);
    }
}
