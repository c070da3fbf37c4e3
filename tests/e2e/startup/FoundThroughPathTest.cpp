// SPDX-License-Identifier: Apache-2.0
//
// The agent started by a bare name, as a shell does that found it through PATH.

#include "support/Host.h"
#include "support/Service.h"
#include "support/ShowKeys.h"
#include "support/Zip.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <unistd.h>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

constexpr char kTrap[] = "return {main = function() print('trapped') end}";

// A current directory in which another user has put all that an installation
// has, and an installation that the agent is started from.
class FoundThroughPath : public testing::Test
{
protected:
    FoundThroughPath()
    {
        WriteFile(Here("kz_agent"), "#!/bin/sh\n");
        WriteFile(Here("lua/tool.lua"), kTrap);
        WriteFile(Here("lua/tool/init.lua"), kTrap);
        WriteFile(Here("kza_core/tool.kze"), MakeZip({{"tool.lua", kTrap}}));
        WriteFile(Here("kza_core/kza.kze"), MakeZip({{"tool.lua", kTrap}}));
        WriteFile(Here("work/kz_agent.ini"),
                  "FIPSMode=0\nDumpLevel=1\ntool.Trace=Appl\n"
                  "[domain]\ntrap=1\n");
        WriteFile(Here("plug-12.0.0-1.kzp"), MakeZip({{"plugged", ""}}));
        WriteFile(Here("plug-12.0.0-1.kzu"), MakeZip({{"kz_agent", ""}}));
        WriteFile(Here("Agent-Core-1"), "");
        WriteFile(Given("tool.lua"), kShowKeys);
    }

    // Paths in the current directory, and in the directory that the command
    // line names.
    [[nodiscard]] std::string Here(const std::string& name) const
    {
        return m_here.File(name);
    }
    [[nodiscard]] std::string Given(const std::string& name) const
    {
        return m_given.File(name);
    }

    [[nodiscard]] CProcessOptions BareName(Words arguments) const
    {
        CProcessOptions options;
        options.cwd = m_here.Path();
        arguments.insert(arguments.begin(), {"kz_agent", "--appname", "tool"});
        options.inChild = [arguments, agent = m_host.Agent()]
        {
            std::vector<char*> argv;
            argv.reserve(arguments.size() + 1);
            for (const std::string& word : arguments)
                argv.push_back(const_cast<char*>(word.c_str()));
            argv.push_back(nullptr);
            execv(agent.c_str(), argv.data());
        };
        return options;
    }

    [[nodiscard]] CProcessResult RunBareName(const Words& arguments) const
    {
        return m_host.Run({}, BareName(arguments));
    }

    [[nodiscard]] std::string Complaint() const
    {
        return "'" + Here("kz_agent") +
               "' is not the program that runs, which was found through PATH: "
               "no code, archive, package or configuration is taken from '" +
               m_here.Path() + "'. Start the program by its path";
    }

    // The log's records of a tool whose working directory is the default one.
    [[nodiscard]] Words Records() const
    {
        Words records;
        for (const std::string& line : ReadLogLines(Here("work/log/tool.log")))
            records.push_back(RecordText(line));
        return records;
    }

    const CHost m_host;
    const CTempDir m_here;
    const CTempDir m_given;
};

TEST_F(FoundThroughPath, RunsWhatItWasGiven)
{
    const CProcessResult result = RunBareName(
        {"--lua_path", Given("?.lua"), "--", "app.path.exe", "app.path.bin",
         "app.path.lib", "app.path.ov", "app.path.work", "app.path.ini", "trap",
         "app.fulldump", "app.fipsmode", "app.trace+", "app.lua.zippath"});
    EXPECT_EQ(result.status, 0);
    const std::string here = m_here.Path();
    EXPECT_EQ(result.out, "app.path.exe=" + here +
                              "/kz_agent (string)\napp.path.bin=" + here +
                              " (string)\napp.path.lib=" + here +
                              "/lib (string)\napp.path.ov=" + here +
                              " (string)\napp.path.work=" + here +
                              "/work (string)\napp.path.ini=" + here +
                              "/work/kz_agent.ini (string)\n"
                              "trap=nil (nil)\napp.fulldump=false (boolean)\n"
                              "app.fipsmode=nil (nil)\napp.trace+= (string)\n"
                              "app.lua.zippath=nil (nil)\n");
    EXPECT_EQ(result.err, Complaint() + "\n");
    EXPECT_EQ(Records(), Words{"ERROR kza: " + Complaint()});
}

TEST_F(FoundThroughPath, FindsNoCodeBesideTheName)
{
    const CProcessResult result = RunBareName({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.find(Complaint() + "\n"), 0U) << result.err;
    EXPECT_NE(result.err.find("module 'tool' not found"), std::string::npos);
    EXPECT_EQ(result.err.find(m_here.Path(), Complaint().size()),
              std::string::npos)
        << result.err;
}

TEST_F(FoundThroughPath, LeavesPackagesAlone)
{
    EXPECT_EQ(RunBareName({"-i", "--lua_path", Given("?.lua")}).status, 0);
    for (const char* name :
         {"kz_agent", "plug-12.0.0-1.kzp", "plug-12.0.0-1.kzu", "Agent-Core-1"})
        EXPECT_TRUE(FileExists(Here(name))) << name;
    EXPECT_FALSE(FileExists(Here("plugged")));
}

TEST_F(FoundThroughPath, ArchivesWithoutAnAbsolutePathAreLeftOut)
{
    WriteFile(Here("a.kze"), MakeZip({{"tool.lua", kTrap}}));
    WriteFile(Here("ext/b.kze"), MakeZip({{"tool.lua", kTrap}}));
    WriteFile(Here("ext/b.kze.version"), "version: 12.0.0-1\n");
    WriteFile(Given("c.kze"), MakeZip({{"x.lua", ""}}));
    const CProcessResult result = RunBareName(
        {"--zippath", "a.kze;./ext/*.kze;" + Given("c.kze"), "--extdir", "ext",
         "--lua_path", Given("?.lua"), "--", "app.lua.zippath"});
    EXPECT_EQ(result.out, "app.lua.zippath=" + Given("c.kze") + " (string)\n");
    const Words expected = {"ERROR kza: " + Complaint(),
                            "WARNING kza: a.kze: no matches",
                            "WARNING kza: ./ext/*.kze: no matches"};
    EXPECT_EQ(Records(), expected);
}

TEST_F(FoundThroughPath, ReadsTheConfigurationThatItIsGiven)
{
    fs::copy(Here("work"), Given("work"), fs::copy_options::recursive);
    EXPECT_EQ(RunBareName({"--workdir", Given("work"), "--lua_path",
                           Given("?.lua"), "--", "trap"})
                  .out,
              "trap=1 (string)\n");
    EXPECT_EQ(RunBareName({"-d", "app.path.ini=" + Given("work/kz_agent.ini"),
                           "--lua_path", Given("?.lua"), "--", "trap"})
                  .out,
              "trap=1 (string)\n");
}

TEST_F(FoundThroughPath, TakesTheInstallationThatItIsGiven)
{
    m_host.AddModule("tool", kShowKeys);
    EXPECT_EQ(RunBareName({"-d", "app.path.bin=" + m_host.Bin(), "--",
                           "app.lua.zippath"})
                  .out,
              "app.lua.zippath=" + m_host.File("kza_core/kza.kze") +
                  " (string)\n");
}

TEST_F(FoundThroughPath, LoadsNoProviderOfOpenSsl)
{
    fs::create_directories(Here("ossl-modules"));
    fs::copy(KZA_BINARY_DIR "/tests/fips/refuses/fips.so",
             Here("ossl-modules/fips.so"));
    WriteFile(Given("tool.lua"), "return {main = function()\n"
                                 "  print(os.getenv('OPENSSL_ENGINES')) end}");
    const CProcessResult result =
        RunBareName({"-d", "app.fipsmode=1", "--lua_path", Given("?.lua")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "nil\n");
    const Words expected = {
        "ERROR kza: " + Complaint(),
        "WARNING kza: Tried to enter FIPS mode but failed: "
        "error:0F06D065:common libcrypto routines:FIPS_mode_set:fips mode not "
        "supported"};
    EXPECT_EQ(Records(), expected);
}

// A link to the program does not make the directory around it safe.
TEST_F(FoundThroughPath, ALinkInTheCurrentDirectoryIsNotTheProgram)
{
    for (const bool isSymbolic : {true, false})
    {
        SCOPED_TRACE(isSymbolic);
        fs::remove(Here("kz_agent"));
        if (isSymbolic)
            fs::create_symlink(m_host.Agent(), Here("kz_agent"));
        else
            fs::create_hard_link(m_host.Agent(), Here("kz_agent"));
        const CProcessResult result = RunBareName(
            {"--lua_path", Given("?.lua"), "--", "app.lua.zippath"});
        EXPECT_EQ(result.out, "app.lua.zippath=nil (nil)\n");
        EXPECT_EQ(result.err, Complaint() + "\n");
    }
}

TEST_F(FoundThroughPath, HelpHasNothingToComplainOf)
{
    const CProcessResult result = RunBareName({"--help"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.err.find("Usage: kz_agent"), 0U) << result.err;
}

TEST_F(FoundThroughPath, TheInstallationItselfMayBeTheCurrentDirectory)
{
    m_host.AddModule("tool", kShowKeys);
    CProcessOptions options =
        BareName({"--", "app.path.bin", "app.lua.zippath"});
    options.cwd = m_host.Bin();
    const CProcessResult result = m_host.Run({}, options);
    EXPECT_EQ(result.out, "app.path.bin=" + m_host.Bin() +
                              " (string)\napp.lua.zippath=" +
                              m_host.File("kza_core/kza.kze") + " (string)\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(FoundThroughPath, APathWithASlashIsTrusted)
{
    m_host.AddModule("tool", kShowKeys);
    CProcessOptions options;
    options.cwd = m_host.Bin();
    const CProcessResult result =
        m_host.Run({"--appname", "tool", "--", "app.lua.zippath"}, options);
    EXPECT_EQ(result.out, "app.lua.zippath=" + m_host.File("kza_core/kza.kze") +
                              " (string)\n");
    EXPECT_EQ(result.err, "");
}

} // namespace
