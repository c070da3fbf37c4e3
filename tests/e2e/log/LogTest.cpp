// SPDX-License-Identifier: Apache-2.0
//
// The log and its trace lines, as an operator finds them.

#include "support/Host.h"
#include "support/Service.h"
#include "support/Terminal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

using Texts = std::vector<std::string>;

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// What the lines of a file say, without date, process and thread.
Texts RecordsOf(const std::string& file)
{
    Texts records;
    for (const std::string& line : ReadLogLines(file))
        records.push_back(RecordText(line));
    return records;
}

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

// A tool whose main is the given Lua code.
std::string Main(const std::string& code)
{
    return "return { main = function()\n" + code + "\nend }\n";
}

/// Runs the agent itself with a main of the given Lua code, once the main loop
/// is there: a script that ends before it leaves the run going.
CProcessResult RunAgent(const CHost& host, const std::string& code)
{
    return host.RunTool(
        "kz_agent", Main("require('mainloop').wait()\n" + code),
        {"--lua_path", KZA_SOURCE_DIR "/tests/support/lua/?.lua"});
}

Texts Numbered(const std::string& text, int count)
{
    Texts texts;
    for (int i = 1; i <= count; ++i)
        texts.push_back("INFO kza: " + text + " " + std::to_string(i));
    return texts;
}

/// A tool run on a host of its own.
struct CTool
{
    CHost host{false};
    std::string log = host.File("work/log/tool.log");

    [[nodiscard]] CProcessResult Run(const std::string& code,
                                     const Texts& arguments = {},
                                     const CProcessOptions& options = {}) const
    {
        return host.RunTool("tool", Main(code), arguments, options);
    }
};

} // namespace

TEST(Log, RecordsHaveDateProcessThreadLevelAndComponent)
{
    const CTool tool;
    tool.host.AddModule(
        "tool",
        Main("dom:Set('app.trace', 'Cmp')\n"
             "for level in ('error warning message info verbose debug')\n"
             "  :gmatch('%a+') do dom:Log(level, 'a ' .. level) end\n"
             "dom:Trace('Cmp', 'a trace')\n"
             "dom:Trace('Other', 'not traced')\n"));
    CProcess process(tool.host.Words({"--appname", "tool"}));
    const pid_t pid = process.Pid();
    EXPECT_EQ(process.Wait().status, 0);

    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[)" +
                              std::to_string(pid) + R"(:(\d+)\] )";
    const Texts expected = {"ERROR kza: a error",
                            "WARNING kza: a warning",
                            "MESSAGE kza: a message",
                            "INFO kza: a info",
                            "VERBOSE kza: a verbose",
                            "DEBUG kza: a debug",
                            "TRACE Cmp: tool.lua:5 ? a trace"};
    const Texts lines = ReadLogLines(tool.log);
    ASSERT_EQ(lines.size(), expected.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        std::smatch match;
        ASSERT_TRUE(
            std::regex_match(lines[i], match, std::regex(stamp + "(.*)")))
            << lines[i];
        EXPECT_EQ(match.str(2), expected[i]);
        // The script has a thread of its own.
        EXPECT_NE(match.str(1), std::to_string(pid));
    }
}

TEST(Log, TimesAreLocal)
{
    const CTool tool;
    CProcessOptions options;
    options.env = {{"TZ", "XYZ-5"}};
    const CProcessResult result =
        tool.Run("print(os.date('%z'))\n"
                 "print(os.date('%Y-%m-%d %H:%M:%S'))\n"
                 "dom:Log('info', 'text')\n"
                 "print(os.date('%Y-%m-%d %H:%M:%S'))",
                 {}, options);
    ASSERT_EQ(result.out.size(), 6U + 20U + 20U);
    EXPECT_EQ(result.out.substr(0, 6), "+0500\n");
    const std::string stamp = ReadLog(tool.log).substr(0, 19);
    EXPECT_LE(result.out.substr(6, 19), stamp);
    EXPECT_LE(stamp, result.out.substr(26, 19));
}

TEST(Log, AgentAnnouncesItsStart)
{
    const CHost host(false);
    EXPECT_EQ(RunAgent(host, "").status, 0);
    const Texts records = RecordsOf(host.File("work/log/kz_agent.log"));
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records[0], "INFO kza: KZA 12.0.0.2932 starting.");
}

TEST(Log, DirectoryAndFileAreForTheOwnerAlone)
{
    const CTool tool;
    CProcessOptions options;
    options.inChild = [] { umask(0); };
    EXPECT_EQ(tool.Run("dom:Log('info', 'x')", {}, options).status, 0);
    EXPECT_EQ(ModeOf(tool.host.File("work/log")), S_IFDIR | 0700);
    EXPECT_EQ(ModeOf(tool.log), S_IFREG | 0600);
}

TEST(Log, TextOfAnyKindStaysOnItsLine)
{
    const CTool tool;
    EXPECT_EQ(tool.Run("dom:Log('info', 'one\\ntwo\\r\\n')\n"
                       "dom:Log('info', '\\27[31mred\\0end\\ttab')\n"
                       "dom:Log('info', '\\195\\164 \\226\\130\\172')\n"
                       "dom:Log('info', 'latin \\228')\n"
                       "dom:Log('info', '')\n"
                       "dom:Log('info', ('x'):rep(1000000))")
                  .status,
              0);
    const Texts lines = ReadLogLines(tool.log);
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(RecordText(lines[0]), "INFO kza: one\\ntwo\\r\\n");
    EXPECT_EQ(RecordText(lines[1]), "INFO kza: \\x1b[31mred\\x00end\ttab");
    EXPECT_EQ(RecordText(lines[2]), "INFO kza: \u00e4 \u20ac");
    EXPECT_EQ(RecordText(lines[3]), "INFO kza: latin \u00e4");
    EXPECT_EQ(RecordText(lines[4]), "INFO kza: ");
    EXPECT_EQ(lines[5].substr(lines[5].find(": ") + 2),
              std::string(1000000, 'x'));
}

TEST(Log, NoEndOfTheProcessLosesARecord)
{
    const struct
    {
        const char* name;
        const char* end;
        int status;
    } cases[] = {
        {"return", "return 0", 0},
        {"status", "return 7", 7},
        {"os.exit", "os.exit(5)", 5},
        {"error", "error('it fails')", 2},
        {"kill",
         "local pid = io.open('/proc/self/stat'):read('*n')\n"
         "os.execute('kill -9 ' .. pid)",
         -1},
    };
    for (const auto& one : cases)
        for (const char* name : {"tool", "kz_agent"})
        {
            SCOPED_TRACE(std::string(one.name) + " " + name);
            const CHost host(false);
            const std::string work =
                "for i = 1, 500 do dom:Log('info', 'record ' .. i) end\n";
            const bool isAgent = std::string(name) == "kz_agent";
            const CProcessResult result =
                isAgent ? RunAgent(host, work + one.end)
                        : host.RunTool(name, Main(work + one.end));
            EXPECT_EQ(result.status, one.status);
            Texts records =
                RecordsOf(host.File("work/log/" + std::string(name) + ".log"));
            records.erase(
                std::remove_if(records.begin(), records.end(),
                               [](const std::string& record)
                               { return !Contains(record, ": record "); }),
                records.end());
            EXPECT_EQ(records, Numbered("record", 500));
        }
}

TEST(Log, ConsoleShowsEveryRecordToo)
{
    const CTool tool;
    const CProcessResult result =
        tool.Run("dom:Log('info', 'one')\n"
                 "dom:Set('log.console', false)\n"
                 "dom:Log('info', 'two')\n"
                 "dom:Set('log.console', true)\n"
                 "dom:Log('info', 'three')\n"
                 "dom:Set('log.console', nil)\n"
                 "dom:Log('info', 'four')",
                 {"--domain_var", "log.console=true"});
    const Texts lines = ReadLogLines(tool.log);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(WithoutNotesOfFallbacks(result.err),
              lines[0] + "\n" + lines[2] + "\n");
}

// A main that logs a record of each level, the last one as a trace.
const std::string kOfEachLevel =
    "dom:Set('app.trace', 'Cmp')\n"
    "for level in ('error warning message info verbose debug')\n"
    "  :gmatch('%a+') do dom:Log(level, 'one') end\n"
    "dom:Trace('Cmp', 'one')\n";

TEST(Log, ConsoleIsALevel)
{
    const std::pair<std::string, std::size_t> cases[] = {
        {"error", 1}, {"warning", 2}, {"message", 3}, {"info", 5},
        {"debug", 7}, {"true", 7},    {"false", 0},   {"loud", 0}};
    for (const auto& [setting, count] : cases)
    {
        SCOPED_TRACE(setting);
        const CTool tool;
        const CProcessResult result =
            tool.Run(kOfEachLevel, {"--domain_var", "log.console=" + setting});
        const Texts lines = ReadLogLines(tool.log);
        ASSERT_EQ(lines.size(), 7U);
        std::string expected;
        for (std::size_t i = 0; i < count; ++i)
            expected += lines[i] + "\n";
        EXPECT_EQ(WithoutNotesOfFallbacks(result.err), expected);
    }
}

// What a tool writes to a terminal in the place of its standard error.
std::string OnTerminal(const CTool& tool,
                       const std::string& code,
                       const Texts& arguments = {})
{
    CTerminal terminal;
    CProcessOptions options;
    options.inChild = [&terminal]
    { dup2(terminal.ProgramsEnd(), STDERR_FILENO); };
    (void)tool.Run(code, arguments, options);
    return WithoutNotesOfFallbacks(terminal.Text());
}

TEST(Log, WarningsAreShownOnATerminal)
{
    const CTool tool;
    const std::string shown = OnTerminal(tool, kOfEachLevel);
    const Texts lines = ReadLogLines(tool.log);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(shown, lines[0] + "\n" + lines[1] + "\n");
}

TEST(Log, SettingHoldsOnATerminalToo)
{
    const CTool tool;
    EXPECT_EQ(
        OnTerminal(tool, kOfEachLevel, {"--domain_var", "log.console=false"}),
        "");
    const CTool other;
    const std::string shown =
        OnTerminal(other, kOfEachLevel, {"--domain_var", "log.console=error"});
    EXPECT_EQ(shown, ReadLogLines(other.log)[0] + "\n");
}

TEST(Log, WarningsOfTheStartAreShownOnATerminal)
{
    const CTool tool;
    const std::string shown =
        OnTerminal(tool, "", {"--domain_var", "a=1", "--domain_var", "b=2"});
    EXPECT_EQ(shown, ReadLogLines(tool.log)[0] + "\n");
    EXPECT_EQ(RecordText(shown.substr(0, shown.size() - 1)),
              "WARNING kza: --domain_var 'a=1' does not count, only the last "
              "one does");
}

TEST(Log, FailureOfLuaIsShownOnceOnATerminal)
{
    const CTool tool;
    const std::string shown = OnTerminal(tool, "error('boom')");
    EXPECT_EQ(RecordsOf(tool.log).size(), 1U);
    EXPECT_EQ(CountOf(shown, "boom"), 1) << shown;
    EXPECT_EQ(CountOf(shown, "ERROR"), 0) << shown;
}

// A service whose launching process has a terminal as its standard error.
CServiceOptions StartedFrom(const CTerminal& terminal)
{
    CServiceOptions options;
    options.process.inChild = [&terminal]
    { dup2(terminal.ProgramsEnd(), STDERR_FILENO); };
    return options;
}

TEST(Log, DaemonLeavesTheTerminalAlone)
{
    const CService service("quiet");
    service.SetModule("return { main = function()\n"
                      "  dom:Log('error', 'in the background')\n"
                      "end }\n");
    CTerminal terminal;
    ASSERT_TRUE(service.StartUntil("in the background", StartedFrom(terminal)));
    EXPECT_TRUE(service.Stop());
    EXPECT_EQ(WithoutNotesOfFallbacks(terminal.Text()), "");
}

TEST(Log, StartBesideAnotherIsRefusedOnTheTerminal)
{
    const CService service("taken");
    service.SetModule("return { main = function()\n"
                      "  dom:Log('message', 'runs')\n"
                      "end }\n");
    ASSERT_TRUE(service.StartUntil("runs"));
    CTerminal terminal;
    EXPECT_EQ(service.Start(StartedFrom(terminal)).status, 1);
    std::istringstream shown(WithoutNotesOfFallbacks(terminal.Text()));
    std::string line;
    std::getline(shown, line);
    EXPECT_EQ(RecordText(line),
              "ERROR kza: /var/run/taken.pid present, exiting");
    EXPECT_FALSE(std::getline(shown, line)) << line;
    EXPECT_TRUE(service.Stop());
}

TEST(Log, OfTheAgentThatCarriesKzctlIsNotShown)
{
    const CHost host;
    std::filesystem::copy(KZA_STAGE_DIR "/kzctl", host.File("kzctl"));
    WriteFile(host.File("kza_core/kzctl.kze"), "no archive");
    CTerminal terminal;
    CProcessOptions options;
    options.inChild = [&terminal]
    { dup2(terminal.ProgramsEnd(), STDERR_FILENO); };
    EXPECT_EQ(TestSupport::Run({host.File("kzctl"), "help"}, options).status,
              0);
    EXPECT_EQ(terminal.Text(), "");
    // The agent alone, without the launcher's setting, repeats the warning.
    EXPECT_EQ(host.Run({"--appname", "kzctl", "--", "help"}, options).status,
              0);
    EXPECT_NE(terminal.Text().find("kza_core/kzctl.kze"), std::string::npos);
}

TEST(Log, RotatesAsTheDomainSays)
{
    const CTool tool;
    EXPECT_EQ(tool.Run("dom:Set('log.keep', 2)\n"
                       "for i = 1, 1000 do dom:Log('info', 'record ' .. i) end",
                       {"--domain_var", "log.maxsize=10000"})
                  .status,
              0);
    Texts records;
    for (const char* suffix : {".2", ".1", ""})
    {
        const std::string file = tool.log + suffix;
        EXPECT_LE(ReadFile(file).size(), 10000U) << suffix;
        for (const std::string& record : RecordsOf(file))
            records.push_back(record);
    }
    EXPECT_FALSE(FileExists(tool.log + ".3"));
    EXPECT_GT(records.size(), 200U);
    const Texts all = Numbered("record", 1000);
    EXPECT_EQ(records,
              Texts(all.end() - static_cast<std::ptrdiff_t>(records.size()),
                    all.end()));
}

TEST(Log, TraceFollowsTheDomainWhileTheProcessRuns)
{
    const CTool tool;
    WriteFile(tool.host.File("work/kz_agent.ini"), "tool.Trace=FromFile\n");
    const CProcessResult result =
        tool.Run("local function trace(text)\n"
                 "  for name in ('FromLine FromFile New'):gmatch('%a+') do\n"
                 "    dom:Trace(name, text)\n"
                 "    io.write(tostring(dom:TraceIsEnabled(name)), ' ')\n"
                 "  end\n"
                 "end\n"
                 "trace('start')\n"
                 "dom:Set('app.trace', 'New')\n"
                 "trace('new')\n"
                 "dom:Set('app.trace+', '*')\n"
                 "trace('all')\n"
                 "dom:Set('app.trace', nil) dom:Set('app.trace+', nil)\n"
                 "trace('none')\n",
                 {"--trace", "'FromLine'"});
    EXPECT_EQ(result.out, "true true false false true true "
                          "true true true false false false ");
    EXPECT_EQ(RecordsOf(tool.log),
              (Texts{"TRACE FromLine: tool.lua:4 trace start",
                     "TRACE FromFile: tool.lua:4 trace start",
                     "TRACE FromFile: tool.lua:4 trace new",
                     "TRACE New: tool.lua:4 trace new",
                     "TRACE FromLine: tool.lua:4 trace all",
                     "TRACE FromFile: tool.lua:4 trace all",
                     "TRACE New: tool.lua:4 trace all"}));
}

TEST(Log, AgentTracesItsStepsWithTheirPlace)
{
    const CHost host(false);
    EXPECT_EQ(RunAgent(host, "").status, 0);
    const std::regex pattern(
        "TRACE Appl: Chunks\\.cpp:\\d+ RunChunk Running chunk '.*'");
    const Texts records = RecordsOf(host.File("work/log/kz_agent.log"));
    EXPECT_TRUE(std::any_of(records.begin(), records.end(),
                            [&](const std::string& record)
                            { return std::regex_match(record, pattern); }));
}

TEST(Log, LogThatCannotBeOpenedIsSaidOnceAndTheRunGoesOn)
{
    const CTool tool;
    WriteFile(tool.host.File("work/log"), "in the way");
    const CProcessResult result =
        tool.Run("for i = 1, 100 do dom:Log('info', 'lost') end\n"
                 "print('done')");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "done\n");
    EXPECT_EQ(result.err,
              "tool: cannot write the log " + tool.log + ": Not a directory\n");
}

TEST(Log, LinkInItsPlaceIsNotFollowed)
{
    const CTool tool;
    const std::string victim = tool.host.File("victim");
    WriteFile(victim, "untouched");
    WriteFile(tool.host.File("work/log/ballast"), "");
    ASSERT_EQ(symlink(victim.c_str(), tool.log.c_str()), 0);
    const CProcessResult result = tool.Run("dom:Log('info', 'x')");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "tool: cannot write the log " + tool.log +
                              ": Too many levels of symbolic links\n");
    EXPECT_EQ(ReadFile(victim), "untouched");
}

TEST(Log, FullDiskLosesRecordsAndHarmsNothingElse)
{
    const CTool tool;
    const std::string directory = tool.host.File("work/log");
    WriteFile(directory + "/mounted over", "");
    CProcessOptions options;
    options.inChild = [directory]
    {
        EnterMountNamespace();
        MountTmpfs(directory, "128k");
        WriteFile(directory + "/ballast", std::string(64 * 1024, 'x'));
    };
    // What is in the mount is seen by the tool alone.
    const CProcessResult result =
        tool.Run("local dir = dom:Get('app.path.work') .. '/log/'\n"
                 "for i = 1, 2000 do\n"
                 "  dom:Log('info', 'record ' .. i)\n"
                 "end\n"
                 "os.remove(dir .. 'ballast')\n"
                 "dom:Log('info', 'room again')\n"
                 "for line in io.lines(dir .. 'tool.log') do print(line) end",
                 {}, options);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");

    Texts records;
    std::string line;
    std::istringstream lines(WithoutNotesOfFallbacks(result.out));
    while (std::getline(lines, line))
        records.push_back(RecordText(line));
    ASSERT_GT(records.size(), 100U);
    EXPECT_EQ(records.back(), "INFO kza: room again");
    // Behind the records that were written stands what the disk took of the
    // first one that was not.
    std::size_t written = records.size() - 2;
    const Texts all = Numbered("record", 2000);
    if (records[written - 1] != all[written - 1])
        --written;
    for (std::size_t i = 0; i < written; ++i)
        EXPECT_EQ(records[i], all[i]);
    EXPECT_EQ(records[records.size() - 2],
              "WARNING kza: " + std::to_string(2000 - written) +
                  " records lost: No space left on device");
}

TEST(Log, WatchdogAndWorkerShareTheFile)
{
    const CService service;
    service.SetModule("return {\n"
                      "main = function()\n"
                      "  dom:Log('debug', 'a debug record')\n"
                      "  dom:Log('verbose', 'worker ready')\n"
                      "end,\n"
                      "shutdown = function()\n"
                      "  dom:Log('info', 'worker ends')\n"
                      "end }\n");
    ASSERT_TRUE(service.StartUntil("worker ready"));
    const pid_t watchdog = service.PidFromFile();
    const pid_t worker = service.Worker();
    ASSERT_TRUE(service.Stop());

    const auto lineWith = [&](const std::string& text)
    {
        for (const std::string& line :
             ReadLogLines(service.Host().File("work/log/kz_agent.log")))
            if (Contains(line, text))
                return line;
        return std::string();
    };
    const auto identity = [](pid_t pid)
    { return " [" + std::to_string(pid) + ":"; };
    EXPECT_TRUE(Contains(lineWith("worker ready"), identity(worker)));
    EXPECT_TRUE(Contains(lineWith("worker ends"), identity(worker)));
    EXPECT_TRUE(
        Contains(lineWith("KZA 12.0.0.2932 exiting."), identity(watchdog)));
    // In the background the framework's threshold is information.
    EXPECT_EQ(lineWith("a debug record"), "");
    for (const std::string& line :
         ReadLogLines(service.Host().File("work/log/kz_agent.log")))
        EXPECT_NE(RecordText(line), "") << line;
}
