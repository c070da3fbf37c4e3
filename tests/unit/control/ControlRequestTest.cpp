// SPDX-License-Identifier: Apache-2.0

#include "control/ControlRequest.h"
#include "support/DomPtr.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace
{

class ControlRequest : public testing::Test
{
protected:
    std::string Answer(const std::string& line)
    {
        return AnswerControlRequest(*m_dom, {"näme", "12.0.0.2932"}, line).line;
    }

    const DomPtr m_dom = NewDom();
};

TEST_F(ControlRequest, ShowsAValueOfEachType)
{
    m_dom->Set("text", "a \"b\"\n");
    m_dom->Set("switch", true);
    m_dom->Set("number", -9223372036854775807LL - 1);
    m_dom->Set("bytes", std::string("\xff\0x", 3));
    EXPECT_EQ(Answer(R"({"do":"get","key":"text"})"),
              R"({"ok":true,"type":"string","value":"a \"b\"\n"})");
    EXPECT_EQ(Answer(R"({"do":"get","key":"switch"})"),
              R"({"ok":true,"type":"boolean","value":true})");
    EXPECT_EQ(Answer(R"({"do":"get","key":"number"})"),
              R"({"ok":true,"type":"number","value":-9223372036854775808})");
    EXPECT_EQ(Answer(R"({"do":"get","key":"bytes"})"),
              R"({"ok":true,"type":"string","base64":"/wB4"})");
    EXPECT_EQ(Answer(R"({"do":"get","key":"none"})"),
              R"({"ok":true,"type":"nil"})");
}

TEST_F(ControlRequest, SetsAndUnsets)
{
    const std::string ok = R"({"ok":true})";
    EXPECT_EQ(Answer(R"({"do":"set","key":"a","value":"\u00e4"})"), ok);
    EXPECT_EQ(m_dom->Get("a"), "ä");
    EXPECT_EQ(Answer(R"({"do":"set","key":"a","value":false})"), ok);
    EXPECT_EQ(m_dom->Value("a"), KzaCore::DomValue(false));
    EXPECT_EQ(Answer(R"({"do":"set","key":"a","value":9223372036854775807})"),
              ok);
    EXPECT_EQ(m_dom->Value("a"), KzaCore::DomValue(9223372036854775807LL));
    EXPECT_EQ(Answer(R"({"do":"unset","key":"a"})"), ok);
    EXPECT_EQ(m_dom->Value("a"), KzaCore::DomValue());
    EXPECT_EQ(Answer(R"({"do":"unset","key":"a"})"), ok);
}

TEST_F(ControlRequest, ListsKeys)
{
    m_dom->Set("b.two", "");
    m_dom->Set("b.one", "");
    m_dom->Set("c", "");
    m_dom->Set("\xff", "");
    EXPECT_EQ(Answer(R"({"do":"keys","prefix":"b."})"),
              R"({"ok":true,"keys":["b.one","b.two"]})");
    EXPECT_EQ(Answer(R"({"do":"keys"})"),
              R"({"ok":true,"keys":["b.one","b.two","c",{"base64":"/w=="}]})");
    EXPECT_EQ(Answer(R"({"do":"keys","prefix":"x"})"),
              R"({"ok":true,"keys":[]})");
}

TEST_F(ControlRequest, TellsWhoAnswers)
{
    EXPECT_EQ(Answer(R"({"do":"version"})"),
              R"({"ok":true,"name":"näme","version":"12.0.0.2932","pid":)" +
                  std::to_string(getpid()) + "}");
}

TEST_F(ControlRequest, WatchNamesItsKey)
{
    const CControlAnswer answer =
        AnswerControlRequest(*m_dom, {}, R"({"do":"watch","key":"k"})");
    EXPECT_TRUE(answer.watch);
    EXPECT_EQ(answer.watched, "k");
    EXPECT_EQ(answer.line, "");
}

TEST_F(ControlRequest, SaysWhatIsWrong)
{
    const std::string noObject = "the line is no JSON object";
    const std::string noValue = "'value' is neither a text nor a boolean nor "
                                "an integer of 64 bits";
    const std::pair<std::string, std::string> cases[] = {
        {"garbage", noObject},
        {"{", noObject},
        {"[]", noObject},
        {"7", noObject},
        {"{} {}", noObject},
        {std::string("{\"do\":\"get\",\0}", 14), noObject},
        {"{\"do\":\"g\xff\"}", noObject},
        {std::string(60000, '['), noObject},
        {"{}", "'do' is missing"},
        {R"({"do":1})", "'do' is no text"},
        {R"({"do":"fly"})", "no such request: 'fly'"},
        {R"({"do":"get"})", "'key' is missing"},
        {R"({"do":"get","key":7})", "'key' is no text"},
        {R"({"do":"get","key":""})", "'key' is empty"},
        {R"({"do":"set","key":"k"})", "'value' is missing"},
        {R"({"do":"set","key":"k","value":null})", noValue},
        {R"({"do":"set","key":"k","value":1.5})", noValue},
        {R"({"do":"set","key":"k","value":9223372036854775808})", noValue},
        {R"({"do":"set","key":"k","value":{}})", noValue},
        {R"({"do":"keys","prefix":1})", "'prefix' is no text"},
    };
    for (const auto& [line, reason] : cases)
    {
        SCOPED_TRACE(line.substr(0, 60));
        EXPECT_EQ(Answer(line), "{\"ok\":false,\"error\":\"" + reason + "\"}");
    }
    EXPECT_EQ(m_dom->Value("k"), KzaCore::DomValue());
}

} // namespace
