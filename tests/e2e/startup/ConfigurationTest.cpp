// SPDX-License-Identifier: Apache-2.0
//
// What the configuration files put into the domain.

#include "support/Host.h"
#include "support/ShowKeys.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

void WriteIni(const CHost& host, const std::string& content)
{
    WriteFile(host.File("work/kz_agent.ini"), content);
}

TEST(Configuration, DefaultsApplyWithoutAFile)
{
    const CHost host(false);
    EXPECT_EQ(Show(host, {}, {"app.trace+", "app.fipsmode", "app.fulldump"}),
              "app.trace+= (string)\n"
              "app.fipsmode=nil (nil)\n"
              "app.fulldump=false (boolean)\n");
}

// What the agent under its own name, which reads other entries, has for a key.
std::string AgentsValue(const CHost& host, const std::string& key)
{
    host.AddModule("kz_agent", "return {main = function()\n"
                               "  require('mainloop').wait()\n"
                               "  print(dom:Get('" +
                                   key + "')) end}");
    const CProcessResult result =
        host.Run({"--lua_path", KZA_SOURCE_DIR "/tests/support/lua/?.lua"});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

TEST(Configuration, TheAgentTracesItselfByDefault)
{
    const CHost host(false);
    EXPECT_EQ(AgentsValue(host, "app.trace+"),
              "Appl,Cmd,Srvc,kza.Heartbeat,kza.ListenThread,"
              "kza.PluginUtils\n");
    WriteIni(host, "Trace=A,B\nkz_agent.Trace=C\n");
    EXPECT_EQ(AgentsValue(host, "app.trace+"), "A,B\n");
    WriteIni(host, "Trace=\n");
    EXPECT_EQ(AgentsValue(host, "app.trace+"), "\n");
}

TEST(Configuration, TheFilesAreThoseThatTheDomainNames)
{
    const CHost host(false);
    WriteIni(host, "showkeys.Trace=default\n");
    WriteFile(host.File("other.ini"), "showkeys.Trace=other\n");
    EXPECT_EQ(Show(host, {"-d", "app.path.ini=" + host.File("other.ini")},
                   {"app.trace+"}),
              "app.trace+=other (string)\n");
}

TEST(Configuration, TheLocalFileWinsOverTheGlobalOne)
{
    const CHost host(false);
    WriteIni(host, "showkeys.Trace=local\nsqlite.config.a=1\n");
    WriteFile(host.File("global"), "showkeys.Trace=global\nFIPSMode=0\n"
                                   "DumpLevel=1\nsqlite.config.b=2\n");
    EXPECT_EQ(Show(host, {"-d", "app.path.ini.global=" + host.File("global")},
                   {"app.trace+", "app.fipsmode", "app.fulldump",
                    "sqlite.config.a", "sqlite.config.b"}),
              "app.trace+=local (string)\n"
              "app.fipsmode=0 (string)\n"
              "app.fulldump=true (boolean)\n"
              "sqlite.config.a=1 (number)\n"
              "sqlite.config.b=2 (number)\n");
}

TEST(Configuration, OnlyEntriesOutsideOfGroupsCount)
{
    const CHost host(false);
    WriteIni(host, "[group]\nFIPSMode=0\nDumpLevel=1\n"
                   "sqlite.config.memstatus=1\n");
    EXPECT_EQ(Show(host, {},
                   {"app.fipsmode", "app.fulldump", "sqlite.config.memstatus"}),
              "app.fipsmode=nil (nil)\n"
              "app.fulldump=false (boolean)\n"
              "sqlite.config.memstatus=nil (nil)\n");
}

TEST(Configuration, AFipsModeOnTheCommandLineYieldsToTheFiles)
{
    const CHost host(false);
    const std::vector<std::string> given = {"-d", "app.fipsmode=0"};
    EXPECT_EQ(Show(host, given, {"app.fipsmode"}), "app.fipsmode=0 (string)\n");
    WriteIni(host, "FIPSMode=\n");
    EXPECT_EQ(Show(host, given, {"app.fipsmode"}), "app.fipsmode= (string)\n");
}

TEST(Configuration, ATracesEntryIsPerApplication)
{
    const CHost host(false);
    WriteIni(host, "Trace=Agent\nshowkeys.Trace=Tool,Other\n");
    EXPECT_EQ(Show(host, {}, {"app.trace+"}),
              "app.trace+=Tool,Other (string)\n");
}

TEST(Configuration, EveryEntryReachesTheDomain)
{
    const CHost host(false);
    WriteIni(host, "FIPSMode=0\n"
                   "DumpLevel=2\n"
                   "sqlite.config.memstatus=1\n"
                   "sqlite.config.pmasz=12x\n"
                   "sqlite.configuration=7\n"
                   "other=1\n");
    EXPECT_EQ(Show(host, {},
                   {"app.fipsmode", "app.fulldump", "sqlite.config.memstatus",
                    "sqlite.config.pmasz", "sqlite.configuration", "other"}),
              "app.fipsmode=0 (string)\n"
              "app.fulldump=true (boolean)\n"
              "sqlite.config.memstatus=1 (number)\n"
              "sqlite.config.pmasz=nil (nil)\n"
              "sqlite.configuration=7 (number)\n"
              "other=nil (nil)\n");
}

TEST(Configuration, ADumpLevelThatIsZeroOrNoNumberIsFalse)
{
    const CHost host(false);
    for (const char* line : {"DumpLevel=0", "DumpLevel=12abc", "DumpLevel="})
    {
        SCOPED_TRACE(line);
        WriteIni(host, line);
        EXPECT_EQ(Show(host, {}, {"app.fulldump"}),
                  "app.fulldump=false (boolean)\n");
    }
}

TEST(Configuration, AnyOtherDumpLevelIsTrue)
{
    const CHost host(false);
    for (const char* line : {"DumpLevel=1", "DumpLevel=-1", "DumpLevel=10"})
    {
        SCOPED_TRACE(line);
        WriteIni(host, line);
        EXPECT_EQ(Show(host, {}, {"app.fulldump"}),
                  "app.fulldump=true (boolean)\n");
    }
}

TEST(Configuration, SettingsYieldToTheCommandLine)
{
    const CHost host(false);
    WriteIni(host, "[domain]\na=local\nb=local\n");
    WriteFile(host.File("global"), "[domain]\nb=global\nc=global\n");
    host.AddModule("showkeys", kShowKeys);
    EXPECT_EQ(Show(host, {"-d", "a=given"}, {"a", "b", "c"}),
              "a=given (string)\nb=local (string)\nc=nil (nil)\n");
    EXPECT_EQ(Show(host, {"-d", "app.path.ini.global=" + host.File("global")},
                   {"a", "b", "c"}),
              "a=local (string)\nb=local (string)\nc=global (string)\n");
    EXPECT_EQ(host.Records("showkeys"), std::vector<std::string>());
}

TEST(Configuration, SettingsForTheAgentsOwnKeysAreWarnedOf)
{
    const CHost host(false);
    WriteIni(host, "[domain]\napp.path.work=/\nApp.Trace=Appl\n"
                   "kza.HeartbeatNow=1\n");
    EXPECT_EQ(
        Show(host, {},
             {"app.path.work", "app.trace", "App.Trace", "kza.HeartbeatNow"}),
        "app.path.work=" + host.Work() + " (string)\n" +
            "app.trace=nil (nil)\nApp.Trace=nil (nil)\n"
            "kza.HeartbeatNow=nil (nil)\n");
    const std::string rest =
        "' of group [domain] is ignored: the agent sets this key itself";
    const std::vector<std::string> expected = {
        "WARNING kza: Setting 'app.path.work" + rest,
        "WARNING kza: Setting 'App.Trace" + rest,
        "WARNING kza: Setting 'kza.HeartbeatNow" + rest};
    EXPECT_EQ(host.Records("showkeys"), expected);
}

// Rotation would move the old content away.
TEST(Configuration, SettingsOfTheLogHoldForTheFirstRecord)
{
    const CHost host(false);
    const std::string old(11 * 1024 * 1024, 'x');
    WriteFile(host.File("work/log/showkeys.log"), old + "\n");
    WriteIni(host, "no entry\n[domain]\nlog.maxsize=0\n");
    Show(host, {"-d", "app.name=showkeys", "-d", "a=1"}, {});
    EXPECT_FALSE(FileExists(host.File("work/log/showkeys.log.1")));
    const std::vector<std::string> expected = {
        "", // the old content
        "ERROR wx: file '" + host.File("work/kz_agent.ini") +
            "', line 1: '=' expected.",
        "WARNING kza: --domain_var 'app.name=showkeys' does not count, only "
        "the last one does"};
    EXPECT_EQ(host.Records("showkeys"), expected);
}

TEST(Configuration, AGroupThatComesTwiceIsNoFault)
{
    const CHost host(false);
    WriteIni(host, "[domain]\na=1\n[other]\nx=1\n[domain]\nb=2\n");
    const CProcessResult result = host.RunTool(
        "twice",
        "return {main = function() print(dom:Get('a'), dom:Get('b')) end}");
    EXPECT_EQ(result.out, "1\t2\n");
    EXPECT_EQ(result.err, "");
}

std::string Utf16(const std::string& ascii)
{
    std::string text = "\xFF\xFE";
    for (const char c : ascii)
        text += {c, '\0'};
    return text;
}

TEST(Configuration, AnyCommonEncodingIsRead)
{
    const CHost host(false);
    for (const std::string& content :
         {std::string("\xEF\xBB\xBFshowkeys.Trace=A\nFIPSMode=0\n"),
          std::string("showkeys.Trace=A\r\nFIPSMode=0\r\n"),
          Utf16("showkeys.Trace=A\nFIPSMode=0\n")})
    {
        WriteIni(host, content);
        EXPECT_EQ(Show(host, {}, {"app.trace+", "app.fipsmode"}),
                  "app.trace+=A (string)\napp.fipsmode=0 (string)\n");
    }
}

TEST(Configuration, UnknownAndRefusedSqliteSettingsAreWarnings)
{
    const CHost host(false);
    WriteIni(host,
             "sqlite.config.nosuch=1\nsqlite.config.memstatus=99999999999\n");
    const CProcessResult result = host.RunTool("badsqlite", "return {}");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string log = host.Log("badsqlite");
    EXPECT_NE(log.find("SQLite setting 'sqlite.config.nosuch' is not known"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("SQLite refuses 99999999999 for "
                       "'sqlite.config.memstatus'"),
              std::string::npos)
        << log;
}

TEST(Configuration, AFileThatMayNotBeReadIsSaidAndCountsAsEmpty)
{
    const CHost host(false);
    WriteIni(host, "DumpLevel=1\n");
    ASSERT_EQ(chmod(host.File("work/kz_agent.ini").c_str(), 0), 0);
    ASSERT_EQ(chmod(host.Work().c_str(), 0777), 0);
    ASSERT_EQ(chmod(host.Bin().c_str(), 0777), 0);
    CProcessOptions options;
    options.inChild = []
    {
        // Root may read everything, so the agent runs as another user.
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(126);
    };
    EXPECT_EQ(Show(host, {}, {"app.fulldump"}, options),
              "app.fulldump=false (boolean)\n");
    EXPECT_NE(host.Log("showkeys").find("kz_agent.ini"), std::string::npos);
}

TEST(Configuration, ADirectoryInItsPlaceCountsAsEmpty)
{
    const CHost host(false);
    WriteFile(host.File("work/kz_agent.ini/x"), "");
    EXPECT_EQ(Show(host, {}, {"app.fulldump"}),
              "app.fulldump=false (boolean)\n");
}

} // namespace
