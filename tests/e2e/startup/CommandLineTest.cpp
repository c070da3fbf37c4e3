// SPDX-License-Identifier: Apache-2.0
//
// What the command line puts into the domain.

#include "support/Host.h"
#include "support/Service.h"
#include "support/ShowKeys.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

using Words = std::vector<std::string>;

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
        const CProcessResult result = host.Run({word});
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
        const CProcessResult result = host.Run(words);
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

TEST(CommandLine, AValueMayFollowInAnyForm)
{
    const CHost host(false);
    const Words forms[] = {
        {"-d", "a=b"},        {"-da=b"},      {"-d=a=b"},
        {"-d:a=b"},           {"-Ud", "a=b"}, {"--domain_var", "a=b"},
        {"--domain_var=a=b"},
    };
    for (const Words& words : forms)
        EXPECT_EQ(Show(host, words, {"a"}), "a=b (string)\n") << words[0];
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
    CProcessOptions options;
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
    const CProcessResult result = host.Run({}, options);
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
    const CProcessResult result =
        TestSupport::Run({bin + "/kz_agent", "-a", "anywhere", "-l",
                          elsewhere.File("mod/?.lua")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, bin + "\n");
    EXPECT_NE(ReadFile(bin + "/work/log/anywhere.log").find("here"),
              std::string::npos);
}

TEST(CommandLine, TheMakersDirectoryIsAboveTheExecutables)
{
    const CHost host(false);
    host.AddModule("showkeys", kShowKeys);
    const CTempDir elsewhere;
    const std::string above = elsewhere.File("Orvalis/agent");
    std::filesystem::create_directories(above);
    std::filesystem::copy(host.Bin(), above + "/bin",
                          std::filesystem::copy_options::recursive);
    const CProcessResult result =
        TestSupport::Run({above + "/bin/kz_agent", "--appname", "showkeys",
                          "--", "app.path.ov", "app.path.bin"});
    EXPECT_EQ(result.out, "app.path.ov=" + above + " (string)\napp.path.bin=" +
                              above + "/bin (string)\n");
}

TEST(CommandLine, TheExecutablesNameIsTheApplicationsWithoutExtension)
{
    const CHost host(false);
    host.AddModule("renamed",
                   "return {main = function() print(dom:Get('app.name'), "
                   "dom:Get('app.path.exe'), arg[0]) end}");
    std::filesystem::rename(host.Agent(), host.File("renamed.bin"));
    const CProcessResult result =
        TestSupport::Run({host.File("renamed.bin"), "--", "word"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "renamed\t" + host.File("renamed.bin") + "\trenamed\n");
}

TEST(CommandLine, OnlyTheAgentsNameToTheLetterIsTheAgents)
{
    const CHost host(false);
    for (const std::string name : {"KZ_AGENT", "kz_agent2", "kz_agent "})
    {
        SCOPED_TRACE(name);
        // A tool ends the process from its script thread, also before the main
        // thread has entered its loop.
        EXPECT_EQ(host.RunTool(name, "return {main = function() return 4 end}")
                      .status,
                  4);
        EXPECT_EQ(host.Log(name), "") << "it announced its start";
    }
}

TEST(CommandLine, BackgroundModeIsInTheDomain)
{
    const CService service("inback");
    service.SetModule("return {main = function() dom:Log('message',\n"
                      "  'background ' .. tostring(dom:Get('app.background')) "
                      "..\n"
                      "  ', plugins ' .. tostring(dom:Get('app.plugins'))) "
                      "end}");
    ASSERT_TRUE(service.StartUntil("background "));
    const Words expected = {"MESSAGE kza: inback is up",
                            "MESSAGE kza: background true, plugins nil"};
    EXPECT_EQ(service.Records(), expected);
    EXPECT_TRUE(service.Stop());
}

TEST(CommandLine, TheUserDirectoryIsExpanded)
{
    const CHost host(false);
    const CTempDir home;
    CProcessOptions options;
    options.env = {{"HOME", home.Path()}};
    EXPECT_EQ(Show(host, {"-w", "~/work"}, {"app.path.work"}, options),
              "app.path.work=" + home.File("work") + " (string)\n");
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

TEST(CommandLine, ADomainVariableIsInTheLocalesEncoding)
{
    const CHost host(false);
    const std::string given = "d\u00fc=\u00fcx";
    EXPECT_EQ(Show(host, {"-d", given}, {"d\u00fc"}),
              "d\u00fc=\u00fcx (string)\n");

    // A value that the locale cannot express becomes empty.
    CProcessOptions plain;
    plain.env = {{"LC_ALL", "C"}};
    EXPECT_EQ(Show(host, {"-d", "a=\u00fcx"}, {"a"}, plain), "a= (string)\n");
    EXPECT_EQ(Show(host, {"-d", given}, {""}, plain), "= (string)\n");
}

TEST(CommandLine, ADomainVariableThatTheLocaleCannotExpressIsAWarning)
{
    const CHost host(false);
    CProcessOptions plain;
    plain.env = {{"LC_ALL", "C"}};
    Show(host, {"-d", "k=\u00e4"}, {}, plain);
    // Without a locale every byte of the command line is a character.
    Show(host, {"-d", "\u00e4=\u00e4"}, {}, plain);
    const Words expected = {
        "WARNING kza: --domain_var 'k': the locale 'C' cannot express the "
        "value, an empty text is stored in its place",
        "WARNING kza: --domain_var '\u00c3\u00a4': the locale 'C' cannot "
        "express the name, an empty text is stored in its place",
        "WARNING kza: --domain_var '\u00c3\u00a4': the locale 'C' cannot "
        "express the value, an empty text is stored in its place"};
    EXPECT_EQ(host.Records("showkeys"), expected);

    const CHost other(false);
    Show(other, {"-d", "k="}, {}, plain);
    Show(other, {"-d", "k=v"}, {}, plain);
    Show(other, {"-d", "k=\u00e4"}, {});
    EXPECT_EQ(other.Records("showkeys"), Words());
}

TEST(CommandLine, WordsWithoutEffectAreWarnedOf)
{
    const CHost host(false);
    EXPECT_EQ(
        Show(host, {"-d", "a=1", "stray", "--domain_var=b=2"}, {"a", "b"}),
        "a=nil (nil)\nb=2 (string)\n");
    const Words expected = {
        "WARNING kza: --domain_var 'a=1' does not count, only the last one "
        "does",
        "WARNING kza: Only words after '--' reach the script, not these: "
        "'stray'"};
    EXPECT_EQ(host.Records("showkeys"), expected);
}

TEST(CommandLine, AnInvalidDomainVariableIsReportedAndIgnored)
{
    const CHost host(false);
    for (const std::string value : {"=x", "abc", "="})
    {
        SCOPED_TRACE(value);
        const CProcessResult result =
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
    EXPECT_EQ(Show(host, {"-d", "app.fulldump=true"}, {"app.fulldump"}),
              "app.fulldump=false (boolean)\n");
    WriteFile(host.File("work/kz_agent.ini"), "sqlite.config.memstatus=1\n");
    EXPECT_EQ(Show(host, {"-d", "sqlite.config.memstatus=0"},
                   {"sqlite.config.memstatus"}),
              "sqlite.config.memstatus=1 (number)\n");
    EXPECT_EQ(
        Show(host, {"-d", "app.path.work=" + other.Path()}, {"app.path.work"}),
        "app.path.work=" + other.Path() + " (string)\n");
}

TEST(CommandLine, TheWorkingDirectoryIsMadeForTheOwnerAlone)
{
    const CHost host(false);
    const CTempDir parent;
    CProcessOptions options;
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

TEST(CommandLine, ARelativeWorkingDirectoryStartsAtTheCurrentOne)
{
    const CHost host(false);
    const CTempDir current;
    CProcessOptions options;
    options.cwd = current.Path();
    EXPECT_EQ(Show(host, {"-w", "./x/../data"}, {"app.path.work"}, options),
              "app.path.work=" + current.File("data") + " (string)\n");
    EXPECT_TRUE(FileExists(current.File("data")));
}

TEST(CommandLine, MissingParentsOfTheWorkingDirectoryAreMadeWithoutExecute)
{
    const CHost host(false);
    const CTempDir dir;
    Show(host, {"-w", dir.File("a/b/c")}, {});
    std::vector<std::pair<const char*, unsigned>> levels = {{"a", 0600U}};
    // Only root can make a directory in such a parent.
    if (geteuid() == 0)
        levels.insert(levels.end(), {{"a/b", 0600U}, {"a/b/c", 0700U}});
    for (const auto& [level, mode] : levels)
    {
        struct stat info
        {
        };
        ASSERT_EQ(stat(dir.File(level).c_str(), &info), 0) << level;
        EXPECT_EQ(info.st_mode & 07777, mode) << level;
    }
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
    const CProcessResult result = host.RunTool(
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
    WriteFile(host.File("dir/x"), "");
    WriteFile(host.File("locked.lua"), "");
    ASSERT_EQ(chmod(host.File("locked.lua").c_str(), 0), 0);
    ASSERT_EQ(chmod(host.Bin().c_str(), 0777), 0);
    CProcessOptions options;
    options.inChild = []
    {
        // Root may read everything, so the agent runs as another user.
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(126);
    };
    for (const std::string& script :
         {std::string("missing.lua"), std::string(), host.File("dir"),
          host.File("locked.lua")})
    {
        SCOPED_TRACE(script);
        const CProcessResult result = host.RunTool(
            "missingtest",
            "return {main = function() print(dom:Get('app.mode.unittest')) "
            "end}",
            {"--unittest=" + script}, options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, script + ": not found");
        EXPECT_EQ(result.out, "nil\n");
    }
}

TEST(CommandLine, TheTestSwitchCountsBesideAMissingTestScript)
{
    const CHost host(false);
    EXPECT_EQ(Show(host, {"-u", "missing.lua", "-U"}, {"app.mode.unittest"}),
              "app.mode.unittest=true (boolean)\n");
}

TEST(CommandLine, AnyNumberOfWordsMayFollow)
{
    const CHost host(false);
    Words words = {"--"};
    for (int i = 1; i <= 10000; ++i)
        words.push_back("word" + std::to_string(i));
    const CProcessResult result = host.RunTool(
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
    CProcessOptions plain;
    plain.env = {{"LC_ALL", "C"}};
    const CProcessResult latin =
        host.RunTool("bytes", kShowBytes, words, plain);
    EXPECT_EQ(latin.status, 0) << latin.err;
    EXPECT_EQ(latin.out, "1\t78c3bfc3be79\n2\t6166746572\n");

    // With one, the framework says that it leaves the word out.
    const CProcessResult utf8 = host.RunTool("bytes", kShowBytes, words);
    EXPECT_EQ(utf8.status, 0) << utf8.err;
    EXPECT_EQ(utf8.out, "1\t6166746572\n");
    EXPECT_NE(utf8.err, "");
}

TEST(CommandLine, ALongDomainVariableArrivesWhole)
{
    const CHost host(false);
    // About as long as the system lets one word of a command line be.
    const std::string value(120000, 'v');
    const CProcessResult result = host.RunTool(
        "longvar", "return {main = function() print(#dom:Get('long')) end}",
        {"--domain_var", "long=" + value});
    EXPECT_EQ(result.out, "120000\n") << result.err;
}

} // namespace
