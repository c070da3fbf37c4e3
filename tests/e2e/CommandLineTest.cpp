// SPDX-License-Identifier: Apache-2.0
//
// What the command line and the configuration file put into the domain.

#include "support/Host.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

using Words = std::vector<std::string>;

// A tool that prints the keys named after "--", one `key=value (type)` a line.
constexpr char kShowKeys[] = R"lua(
local tool = {}
function tool.main()
  for _, key in ipairs(arg) do
    local value = dom:Get(key)
    print(key .. "=" .. tostring(value) .. " (" .. type(value) .. ")")
  end
end
return tool
)lua";

std::string Show(const CHost& host,
                 Words options,
                 const Words& keys,
                 const SProcessOptions& process = {})
{
    options.emplace_back("--");
    options.insert(options.end(), keys.begin(), keys.end());
    const SProcessResult result =
        host.RunTool("showkeys", kShowKeys, options, process);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

constexpr char kUsage[] =
    R"(Usage: kz_agent [-h] [--verbose] [-a <str>] [-b] [-c <str>] [-d <str>] [-e <str>] [-i] [-l <str>] [-p <str>] [-t <str>] [-w <str>] [-u <str>] [-U] [-z <str>] [-- script-param [script-param ...]...]
  -h, --help	show this help message
  --verbose	generate verbose log messages
  -a, --appname=<str>	the name of this application (default is based on the name of the executable file).
  -b, --background	run as a Windows service or Unix daemon process.
  -c, --lua_cpath=<str>	add the supplied value at the front of the search path for Lua C libraries.
  -d, --domain_var=<str>	sets domain variable; name=value format.
  -e, --extdir=<str>	extension folder. All *.kze files from this folder are added to the Lua search path.
  -i, --install_plugins	install all *.kzp files found in the same folder as the executable.
  -l, --lua_path=<str>	add the supplied value at the front of the search path for Lua libraries.
  -p, --plugins=<str>	comma delimited list of plugins to enable.
  -t, --trace=<str>	enable tracing for the specified set of module names, separated by commas.
  -w, --workdir=<str>	working directory where this instance's data files are stored.
  -u, --unittest=<str>	runs the Lua script (possibly wildcarded) under LuaUnit.
  -U, --test	
  -z, --zippath=<str>	list of ZIP archives of Lua code (possibly wildcarded), separated by semi-colons.
)";

// The framework chooses how wide the first column is.
std::string WithoutPadding(const std::string& usage)
{
    return std::regex_replace(usage, std::regex(" *\t"), "\t");
}

TEST(CommandLine, HelpListsEveryOptionInOrder)
{
    const CHost host(false);
    for (const char* word : {"--help", "-h"})
    {
        const SProcessResult result = host.Run({word});
        EXPECT_EQ(result.status, 255);
        EXPECT_EQ(WithoutPadding(result.err), kUsage);
        EXPECT_EQ(result.out, "");
    }
    EXPECT_FALSE(FileExists(host.Work())) << "help must leave no trace";
}

TEST(CommandLine, SyntaxErrorsNameTheWordAndEndTheStart)
{
    const CHost host(false);
    const std::pair<Words, std::string> cases[] = {
        {{"--no_such"}, "Unknown long option 'no_such'"},
        {{"-X"}, "Unknown option 'X'"},
        {{"-u"}, "Option 'u' requires a value."},
        {{"--appname"}, "Option 'appname' requires a value."},
    };
    for (const auto& [words, message] : cases)
    {
        SCOPED_TRACE(words[0]);
        const SProcessResult result = host.Run(words);
        EXPECT_EQ(result.status, 255);
        EXPECT_EQ(result.err.substr(0, result.err.find('\n')), message);
        EXPECT_NE(WithoutPadding(result.err).find(kUsage), std::string::npos);
    }
}

TEST(CommandLine, SwitchesAndOptionsAreDistinguishedByCase)
{
    const CHost host(false);
    WriteFile(host.File("t.lua"), "");
    // -u takes a value, -U does not and names no script.
    EXPECT_EQ(Show(host, {"-U"}, {"app.mode.unittest"}),
              "app.mode.unittest=true (boolean)\n");
    EXPECT_EQ(Show(host, {"--test"}, {"app.mode.unittest"}),
              "app.mode.unittest=true (boolean)\n");
    EXPECT_EQ(Show(host, {}, {"app.mode.unittest"}),
              "app.mode.unittest=nil (nil)\n");
}

TEST(CommandLine, PathsOfTheInstallationAreInTheDomain)
{
    const CHost host(false);
    const std::string& bin = host.Bin();
    EXPECT_EQ(
        Show(host, {},
             {"app.path.exe", "app.path.bin", "app.path.lib", "app.path.ov",
              "app.path.work", "app.path.ini", "app.path.ini.global",
              "app.version", "app.name", "app.background"}),
        "app.path.exe=" + bin + "/kz_agent (string)\n" + "app.path.bin=" + bin +
            " (string)\n" + "app.path.lib=" + bin + "/lib (string)\n" +
            "app.path.ov=" + bin + " (string)\n" + "app.path.work=" + bin +
            "/work (string)\n" + "app.path.ini=" + bin +
            "/work/kz_agent.ini (string)\n" +
            "app.path.ini.global=/etc/kz_agent.conf (string)\n"
            "app.version=12.0.0.2932 (string)\n"
            "app.name=showkeys (string)\n"
            "app.background=nil (nil)\n");
}

TEST(CommandLine, TheExecutableIsFoundFromTheCurrentDirectory)
{
    const CHost host(false);
    WriteFile(host.File("sub/x"), "");
    SProcessOptions options;
    options.cwd = host.File("sub");
    host.AddModule("showkeys", kShowKeys);
    // As a shell in sub/ would start it: the path is relative.
    options.inChild = [&host]
    {
        if (chdir(host.File("sub").c_str()) == 0)
            execl("../sub/.././kz_agent", "../sub/.././kz_agent", "--appname",
                  "showkeys", "--", "app.path.bin", nullptr);
        _exit(126);
    };
    const SProcessResult result = host.Run({}, options);
    EXPECT_EQ(result.out, "app.path.bin=" + host.Bin() + " (string)\n");
}

TEST(CommandLine, AnInstallationMayLieAnywhere)
{
    const CHost host;
    const CTempDir elsewhere;
    const std::string bin = elsewhere.File("a b/d\u00fc");
    std::filesystem::create_directories(elsewhere.File("a b"));
    std::filesystem::copy(host.Bin(), bin,
                          std::filesystem::copy_options::recursive);
    WriteFile(elsewhere.File("mod/anywhere.lua"),
              "return {main = function() print(dom:Get('app.path.bin'))\n"
              "  require('tests.kzaunit') dom:Log('message', 'here') end}");
    const SProcessResult result =
        TestSupport::Run({bin + "/kz_agent", "-a", "anywhere", "-l",
                          elsewhere.File("mod/?.lua")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, bin + "\n");
    EXPECT_NE(ReadFile(bin + "/work/log/anywhere.log").find("here"),
              std::string::npos);
}

TEST(CommandLine, ValuesAreKeptAsGiven)
{
    const CHost host(false);
    EXPECT_EQ(
        Show(host,
             {"--plugins", "x, y", "--lua_path", "A/@;B", "--lua_cpath",
              "C/@.so", "--trace", "'Appl',\"Cmd\""},
             {"app.plugins", "app.lua.path", "app.lua.cpath", "app.trace"}),
        "app.plugins=x, y (string)\n"
        "app.lua.path=A/x;A/ y;B;B (string)\n"
        "app.lua.cpath=C/x.so;C/ y.so (string)\n"
        "app.trace=Appl,Cmd (string)\n");
    EXPECT_EQ(
        Show(host, {}, {"app.plugins", "app.lua.path", "app.trace"}),
        "app.plugins=nil (nil)\napp.lua.path=nil (nil)\napp.trace=nil (nil)\n");
    // Without plugins a placeholder stays.
    EXPECT_EQ(Show(host, {"-l", "A/@"}, {"app.lua.path"}),
              "app.lua.path=A/@ (string)\n");
}

TEST(CommandLine, DomainVariablesAreTakenApartAtTheFirstEqualsSign)
{
    const CHost host(false);
    EXPECT_EQ(Show(host, {"--domain_var", "a=b=c"}, {"a"}), "a=b=c (string)\n");
    EXPECT_EQ(Show(host, {"-d", "a="}, {"a"}), "a= (string)\n");
    EXPECT_EQ(Show(host, {"-d", "a=1", "-d", "b=2"}, {"a", "b"}),
              "a=nil (nil)\nb=2 (string)\n");
}

TEST(CommandLine, AnInvalidDomainVariableIsReportedAndIgnored)
{
    const CHost host(false);
    for (const std::string value : {"=x", "abc", "="})
    {
        SCOPED_TRACE(value);
        const SProcessResult result =
            host.RunTool("invalidvar", "return {}", {"--domain_var", value});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err,
                  "Ignoring invalid domain variable specification '" + value +
                      "': expected name=value format\n");
    }
}

TEST(CommandLine, ADomainVariableYieldsToLaterStepsAndOverridesEarlierOnes)
{
    const CHost host(false);
    const CTempDir other;
    EXPECT_EQ(Show(host, {"-d", "app.trace+=mine"}, {"app.trace+"}),
              "app.trace+= (string)\n");
    EXPECT_EQ(
        Show(host, {"-d", "app.path.work=" + other.Path()}, {"app.path.work"}),
        "app.path.work=" + other.Path() + " (string)\n");
}

TEST(CommandLine, TheWorkingDirectoryIsMadeForTheOwnerAlone)
{
    const CHost host(false);
    const CTempDir parent;
    SProcessOptions options;
    options.env = {{"KZA_TEST_PLACE", parent.Path()}};
    EXPECT_EQ(Show(host, {"--workdir", "$KZA_TEST_PLACE/a b/../w\u00f6rk/"},
                   {"app.path.work"}, options),
              "app.path.work=" + parent.File("w\u00f6rk") + " (string)\n");
    struct stat info
    {
    };
    ASSERT_EQ(stat(parent.File("w\u00f6rk").c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0700U);
}

TEST(CommandLine, AnExistingWorkingDirectoryKeepsItsRights)
{
    const CHost host(false);
    const CTempDir dir;
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    Show(host, {"-w", dir.Path()}, {});
    struct stat info
    {
    };
    ASSERT_EQ(stat(dir.Path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755U);
}

TEST(CommandLine, AWorkingDirectoryThatCannotBeMadeIsSaidAndTheRunGoesOn)
{
    const CHost host(false);
    WriteFile(host.File("file"), "");
    const SProcessResult result = host.RunTool(
        "nowork", "return {main = function() print('ran') return 4 end}",
        {"--workdir", host.File("file/work")});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "ran\n");
    EXPECT_NE(result.err.find(host.File("file/work")), std::string::npos)
        << result.err;
}

TEST(CommandLine, AMissingTestScriptIsReportedAndTheRunIsNormal)
{
    const CHost host(false);
    const SProcessResult result = host.RunTool(
        "missingtest",
        "return {main = function() print(dom:Get('app.mode.unittest')) end}",
        {"--unittest", "missing.lua"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "missing.lua: not found");
    EXPECT_EQ(result.out, "nil\n");
}

TEST(CommandLine, AnyNumberOfWordsMayFollow)
{
    const CHost host(false);
    Words words = {"--"};
    for (int i = 1; i <= 10000; ++i)
        words.push_back("word" + std::to_string(i));
    const SProcessResult result = host.RunTool(
        "manywords",
        "return {main = function() print(#arg, arg[1], arg[#arg]) end}", words);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "10000\tword1\tword10000\n");
}

// Prints the bytes of the words as hexadecimal numbers.
constexpr char kShowBytes[] =
    "return {main = function() for i, word in ipairs(arg) do\n"
    "  print(i, (word:gsub('.', function(c) "
    "return ('%02x'):format(c:byte()) end))) end end}";

TEST(CommandLine, WordsReachLuaAsUtf8)
{
    const CHost host(false);
    const Words words = {"--", "d\u00fc", "", "a b"};
    EXPECT_EQ(host.RunTool("bytes", kShowBytes, words).out,
              "1\t64c3bc\n2\t\n3\t612062\n");
}

TEST(CommandLine, BytesThatAreNoUtf8EndInNoCrash)
{
    const CHost host(false);
    const Words words = {"--", "x\xff\xfey", "after"};

    // Without a locale every byte is a character of its own.
    SProcessOptions plain;
    plain.env = {{"LC_ALL", "C"}};
    const SProcessResult latin =
        host.RunTool("bytes", kShowBytes, words, plain);
    EXPECT_EQ(latin.status, 0) << latin.err;
    EXPECT_EQ(latin.out, "1\t78c3bfc3be79\n2\t6166746572\n");

    // With one, the framework says that it leaves the word out.
    const SProcessResult utf8 = host.RunTool("bytes", kShowBytes, words);
    EXPECT_EQ(utf8.status, 0) << utf8.err;
    EXPECT_EQ(utf8.out, "1\t6166746572\n");
    EXPECT_NE(utf8.err, "");
}

TEST(CommandLine, ALongDomainVariableArrivesWhole)
{
    const CHost host(false);
    // As long as the system lets a word be.
    const std::string value(120000, 'v');
    const SProcessResult result = host.RunTool(
        "longvar", "return {main = function() print(#dom:Get('long')) end}",
        {"--domain_var", "long=" + value});
    EXPECT_EQ(result.out, "120000\n") << result.err;
}

// --- Configuration file ----------------------------------------------------

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
    const SProcessResult result = host.RunTool("badsqlite", "return {}");
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
    SProcessOptions options;
    options.inChild = []
    {
        // Root may read everything.
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
