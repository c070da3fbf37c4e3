// SPDX-License-Identifier: Apache-2.0

#include "startup/UnusedWords.h"

#include "startup/Options.h"

#include "support/CollectedLog.h"

#include <gtest/gtest.h>

#include <wx/arrstr.h>
#include <wx/cmdline.h>
#include <wx/init.h>

#include <vector>

using namespace TestSupport;

namespace
{

using Texts = std::vector<wxString>;

// What is warned of after these words.
Texts WarningsAfter(const Texts& words)
{
    const wxInitializer framework;
    wxArrayString all;
    all.Add("kz_agent");
    std::vector<const wchar_t*> argv = {L"kz_agent"};
    for (const wxString& word : words)
    {
        all.Add(word);
        argv.push_back(word.wc_str());
    }
    wxCmdLineParser parser(static_cast<int>(argv.size()),
                           const_cast<wchar_t**>(argv.data()));
    DeclareOptions(parser);
    EXPECT_EQ(parser.Parse(false), 0);
    const CCollectedLog log;
    WarnOfUnusedWords(parser, all);
    for (const wxLogLevel level : log.m_levels)
        EXPECT_EQ(level, wxLOG_Warning);
    return log.m_texts;
}

TEST(UnusedWords, SilentWhereEverythingCounts)
{
    for (const Texts& words : std::vector<Texts>{
             {},
             {"--"},
             {"--", "a", "--", "--appname"},
             {"--appname", "a", "-d", "b=1", "-b", "-b", "-iU", "--test"},
             {"-d", "--appname=x", "--appname", "y", "--", "z"},
         })
        EXPECT_EQ(WarningsAfter(words), Texts());
}

TEST(UnusedWords, EachValueButTheLastOfAnOptionIsNamed)
{
    const Texts expected = {
        "--domain_var 'a=1' does not count, only the last one does",
        "--appname 'x' does not count, only the last one does",
        "--domain_var 'b=2' does not count, only the last one does",
    };
    EXPECT_EQ(WarningsAfter({"-d", "a=1", "-a", "x", "--domain_var=b=2",
                             "--appname", "x", "-Udc=3", "--", "-d", "d=4"}),
              expected);
}

TEST(UnusedWords, EveryOptionWithAValueIsLookedAt)
{
    for (const wxString option :
         {"appname", "lua_cpath", "domain_var", "extdir", "lua_path", "plugins",
          "trace", "workdir", "unittest", "zippath"})
        EXPECT_EQ(
            WarningsAfter({"--" + option, "first", "--" + option, "last"}),
            Texts{"--" + option +
                  " 'first' does not count, only the last one does"});
}

TEST(UnusedWords, WordsThatTheScriptDoesNotGetAreNamed)
{
    const wxString text = "Only words after '--' reach the script, not these: ";
    const std::pair<Texts, wxString> cases[] = {
        {{"a"}, "'a'"},
        {{"a", "-b", "b c", "--"}, "'a' 'b c'"},
        {{"a", "--", "x", "y"}, "'a'"},
        {{"-d", "v", "a", "--", "-b", "--"}, "'a'"},
    };
    for (const auto& [words, named] : cases)
        EXPECT_EQ(WarningsAfter(words), Texts{text + named});
}

} // namespace
