// SPDX-License-Identifier: Apache-2.0
//
// Man pages as man shows them, and completion as bash does it.

#include "support/Host.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

const std::string kManual = KZA_BINARY_DIR "/packaging/manual/";

std::set<std::string> Lines(const std::string& text)
{
    std::istringstream in(text);
    std::set<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.insert(line);
    return lines;
}

std::vector<fs::path> Pages()
{
    std::vector<fs::path> pages;
    for (const auto& entry : fs::directory_iterator(kManual))
        if (std::regex_match(entry.path().extension().string(),
                             std::regex("\\.[1-8]")))
            pages.push_back(entry.path());
    return pages;
}

CProcessResult Show(const std::string& page)
{
    CProcessOptions options;
    options.env = {{"MANWIDTH", "80"}, {"MANPAGER", "cat"}};
    return Run({"/usr/bin/env", "man", "--warnings", "-E", "UTF-8", "-l", page},
               options);
}

TEST(Manual, PagesAreShownWithoutWarnings)
{
    EXPECT_FALSE(Pages().empty());
    for (const fs::path& page : Pages())
    {
        SCOPED_TRACE(page);
        const CProcessResult shown = Show(page);
        EXPECT_EQ(shown.status, 0);
        EXPECT_EQ(shown.err, "");
        EXPECT_NE(shown.out.find("NAME\n"), std::string::npos);
        EXPECT_EQ(ReadFile(page).find("\n@"), std::string::npos);
        EXPECT_EQ(ReadFile(page).find("VERSION@"), std::string::npos);
    }
}

// The options that a text lists, each with its short name and whether it has a
// value.
std::set<std::string> OptionsIn(const std::string& text)
{
    const std::regex option("^ +(?:(-\\w), )?(--\\w+)(=?)");
    std::set<std::string> options;
    for (const std::string& line : Lines(text))
    {
        std::smatch match;
        if (std::regex_search(line, match, option))
            options.insert(match[1].str() + " " + match[2].str() +
                           match[3].str());
    }
    return options;
}

TEST(Manual, AgentsPageHasItsOptions)
{
    const CHost host;
    const std::set<std::string> options = OptionsIn(host.Run({"--help"}).err);
    EXPECT_GT(options.size(), 10U);
    EXPECT_EQ(OptionsIn(Show(kManual + "kz_agent.8").out), options);
}

TEST(Manual, PagesHaveTheCommandsOfTheirTools)
{
    const std::pair<const char*, const char*> commands[] = {
        {"kzctl.8", "\n   status\n"},
        {"kzctl.8", "--level {error,warning,message,info,verbose,debug,trace}"},
        {"kzctl.8", "only records of this level or worse"},
        {"kzrun.1", "start again after each change of the project"},
        {"kzpack.1", "shows what an archive or a package holds"},
    };
    for (const auto& [page, text] : commands)
        EXPECT_NE(Show(kManual + page).out.find(text), std::string::npos)
            << text;
}

// What a tab offers at the end of the words.
std::set<std::string> Complete(const std::vector<std::string>& words)
{
    const std::string script =
        "source \"$1/$2.bash\" && shift && COMP_WORDS=(\"$@\") &&"
        " COMP_CWORD=$(($# - 1)) && spec=$(complete -p \"$1\") &&"
        " function=${spec#* -F } && \"${function%% *}\" \"$1\" &&"
        " printf '%s\\n' \"${COMPREPLY[@]}\"";
    std::vector<std::string> command = {"/bin/bash", "-c", script, "bash",
                                        kManual};
    command.insert(command.end(), words.begin(), words.end());
    CProcessOptions options;
    const CTempDir empty;
    options.cwd = empty.Path();
    const CProcessResult result = Run(command, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return Lines(result.out);
}

TEST(Completion, OffersCommandsAndOptions)
{
    using TSet = std::set<std::string>;
    EXPECT_EQ(Complete({"kzctl", "st"}), TSet({"start", "status", "stop"}));
    EXPECT_EQ(Complete({"kzctl", "--js"}), TSet({"--json"}));
    EXPECT_EQ(Complete({"kzctl", "log", "--le"}), TSet({"--level"}));
    EXPECT_EQ(Complete({"kzctl", "log", "--level", "w"}), TSet({"warning"}));
    EXPECT_EQ(Complete({"kzpack", "v"}), TSet({"verify"}));
    EXPECT_EQ(Complete({"kzpack", "archive", "--co"}), TSet({"--compile"}));
    EXPECT_EQ(Complete({"kzrun", "spool", "ru"}), TSet({"run"}));
    EXPECT_EQ(Complete({"kzrun", "spool", "--wa"}), TSet({"--watch"}));
    EXPECT_EQ(Complete({"kz_agent", "--app"}), TSet({"--appname"}));
    EXPECT_EQ(Complete({"kz_agent", "-b", "--lua"}),
              TSet({"--lua_cpath", "--lua_path"}));
}

} // namespace
