// SPDX-License-Identifier: Apache-2.0
//
// The application script's life in the foreground, as an author sees it.

#include "support/Host.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// A module whose functions say that they were called.
std::string Steps(const std::string& init,
                  const std::string& main,
                  const std::string& shutdown)
{
    return "return {\n"
           "  init = function() print('init') " +
           init +
           " end,\n"
           "  main = function() print('main') " +
           main +
           " end,\n"
           "  shutdown = function() print('shutdown') " +
           shutdown +
           " end,\n"
           "}\n";
}

struct CSequence
{
    const char* name;
    const char* init;
    const char* main;
    const char* shutdown;
    int status;
    const char* out;
};

constexpr CSequence kSequences[] = {
    {"all succeed", "", "", "", 0, "init\nmain\nshutdown\n"},
    {"init fails", "return 5", "", "", 5, "init\n"},
    {"main fails", "", "return 3", "", 3, "init\nmain\n"},
    {"shutdown fails", "", "", "return 9", 9, "init\nmain\nshutdown\n"},
    {"a numeric string counts", "", "return '7'", "", 7, "init\nmain\n"},
    {"a fraction is cut", "", "return 2.9", "", 2, "init\nmain\n"},
    {"nil is success", "return nil", "", "", 0, "init\nmain\nshutdown\n"},
    {"true is success", "", "return true", "", 0, "init\nmain\nshutdown\n"},
    {"a table is success", "", "return {}", "", 0, "init\nmain\nshutdown\n"},
    {"negative", "", "return -1", "", 255, "init\nmain\n"},
    {"a negative fraction is cut", "", "return -0.9", "", 0,
     "init\nmain\nshutdown\n"},
    {"a text is success", "return 'x7'", "", "", 0, "init\nmain\nshutdown\n"},
    {"only the first result counts", "", "return nil, 7", "", 0,
     "init\nmain\nshutdown\n"},
    {"32 bits count", "", "return 2^32 + 7", "", 7, "init\nmain\n"},
    {"32 bits that are 0", "", "return 2^32", "", 0, "init\nmain\nshutdown\n"},
};

TEST(Script, AStatusOtherThanZeroStopsTheSequence)
{
    const CHost host(false);
    for (const CSequence& s : kSequences)
    {
        SCOPED_TRACE(s.name);
        const CProcessResult result =
            host.RunTool("sequence", Steps(s.init, s.main, s.shutdown));
        EXPECT_EQ(result.status, s.status);
        EXPECT_EQ(result.out, s.out);
        // A status of the script's own is no error of Lua's: the report that
        // goes with it is empty.
        EXPECT_EQ(result.err, s.status == 0 ? "" : "\n");
    }
}

TEST(Script, AModuleNeedsNoFunctions)
{
    const CHost host(false);
    for (const char* source : {"return {}", "return {main = 'text', init = 3}"})
    {
        const CProcessResult result = host.RunTool("bare", source);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
    }
}

TEST(Script, AModuleThatCannotBeIndexedIsAnError)
{
    const CHost host(false);
    const std::pair<const char*, const char*> cases[] = {
        {"", "boolean"}, // what require makes of nothing
        {"return 7", "number"},
    };
    for (const auto& [source, type] : cases)
    {
        SCOPED_TRACE(type);
        const CProcessResult result = host.RunTool("noindex", source);
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(Contains(result.err, "noindex:1: attempt to index global "
                                         "'kzaAppModule' (a " +
                                             std::string(type) + " value)\n"))
            << result.err;
    }
}

TEST(Script, FunctionsGetNoArguments)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "noargs", "return {main = function(...) return select('#', ...) end}");
    EXPECT_EQ(result.status, 0);
}

TEST(Script, TheModuleIsTheGlobalKzaAppModule)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "global", "local m = {}\n"
                  "function m.main() return kzaAppModule == m and 4 end\n"
                  "return m\n");
    EXPECT_EQ(result.status, 4);
}

TEST(Script, AnyNameWorksThatFitsALongBracket)
{
    const CHost host(false);
    for (const std::string name : {"my-tool", "a b", "it's\"q\"", "\u00fcber"})
    {
        SCOPED_TRACE(name);
        EXPECT_EQ(host.RunTool(name, "return {main = function() return 6 end}")
                      .status,
                  6);
    }
}

TEST(Script, ANameThatClosesTheBracketIsASyntaxError)
{
    const CHost host(false);
    const CProcessResult result = host.Run({"--appname", "a]]b"});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(Contains(result.err, "a]]b:1:")) << result.err;
}

TEST(Script, AServiceStopsTheSequenceLikewise)
{
    for (const CSequence& s : kSequences)
    {
        // A sequence that succeeds waits for a stop request, and status 3
        // restarts the worker.
        if (s.status == 0 || s.status == 3 ||
            std::string(s.name) == "shutdown fails")
            continue;
        SCOPED_TRACE(s.name);
        const CService service("backsequence");
        service.SetModule("local print = function(text)\n"
                          "  dom:Log('message', text)\n"
                          "  require('mainloop').wait() end\n" +
                          Steps(s.init, s.main, s.shutdown));
        ASSERT_TRUE(service.StartUntil("exited with status"));
        EXPECT_TRUE(service.WaitUntilGone());
        std::string said;
        for (const std::string& record : service.Records())
            if (record.rfind("MESSAGE kza: ", 0) == 0)
                said += record.substr(13) + "\n";
        // The service is up once init has returned 0, just before main.
        std::string expected = s.out;
        const std::size_t main = expected.find("main\n");
        if (main != std::string::npos)
            expected.insert(main, "backsequence is up\n");
        EXPECT_EQ(said, expected);
        EXPECT_EQ(
            CountOf(service.Log(), "(exit " + std::to_string(s.status) + ")"),
            1)
            << service.Log();
    }
}

// --- Errors ----------------------------------------------------------------

TEST(Script, AMissingModuleListsWhatWasSearched)
{
    const CHost host;
    const CProcessResult result =
        host.Run({"--appname", "no.such", "--lua_path", "/first/?.lua"});
    EXPECT_EQ(result.status, 2);
    const std::string expected[] = {
        "no.such:1: module 'no.such' not found:",
        "\tno field package.preload['no.such']",
        "\tno file '/first/no/such.lua'",
        "\tno file '" + host.File("kza_core/kza.kze") + "/no/such.lua'",
        "\tno file '" + host.File("kza_core/kza.kze") + "/no/such/init.lua'",
        "\tno file '" + host.File("lua/no/such.lua") + "'",
        "\tno file '" + host.File("lua/no/such/init.lua") + "'",
        "\tno file '" + host.File("lib/lua/no/such.so") + "'",
    };
    std::size_t at = 0;
    for (const std::string& line : expected)
    {
        const std::size_t found = result.err.find(line + "\n", at);
        ASSERT_NE(found, std::string::npos) << line << "\nin\n" << result.err;
        at = found;
    }
    EXPECT_EQ(result.err.find("/first/", result.err.find("/first/") + 1),
              std::string::npos)
        << "what was searched first is listed once";
}

TEST(Script, AModuleThatCannotBeReadIsToldFromOneThatIsNotThere)
{
    // A link to itself cannot be opened by any user, root included.
    const CHost host(false);
    const CTempDir dir;
    const std::string loops[] = {dir.File("loop.lua"),
                                 host.File("lua/loop.lua"),
                                 host.File("lib/lua/loop.so")};
    for (const std::string& loop : loops)
    {
        std::filesystem::create_directories(
            std::filesystem::path(loop).parent_path());
        std::filesystem::create_symlink(loop, loop);
    }
    const CProcessResult result =
        host.Run({"--appname", "loop", "--lua_path", dir.File("?.lua")});
    EXPECT_EQ(result.status, 2);
    for (const std::string& loop : loops)
        EXPECT_TRUE(
            Contains(result.err, "\tno file '" + loop +
                                     "': Too many levels of symbolic links\n"))
            << result.err;
    EXPECT_TRUE(Contains(
        result.err, "\tno file '" + host.File("lua/loop/init.lua") + "'\n"))
        << result.err;
}

TEST(Script, AnErrorShowsATracebackWithFileAndLine)
{
    const CHost host(false);
    const std::string file = host.File("lua/failing.lua");
    for (const char* step : {"init", "main", "shutdown"})
    {
        SCOPED_TRACE(step);
        const CProcessResult result = host.RunTool(
            "failing", "local m = {}\n"
                       "local function inner() error('boom') end\n"
                       "function m." +
                           std::string(step) +
                           "()\n  inner()\n  print('not reached')\nend\n"
                           "return m\n");
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(Contains(result.err, file + ":2: boom\n"
                                                "stack traceback:\n"))
            << result.err;
        EXPECT_TRUE(Contains(result.err, file + ":4: in function"))
            << result.err;
    }
}

TEST(Script, ASyntaxErrorNamesFileAndLine)
{
    const CHost host(false);
    const CProcessResult result =
        host.RunTool("syntax", "local m = {}\nfunction m.main(\nreturn m\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(
        Contains(result.err, "error loading module 'syntax' from file '" +
                                 host.File("lua/syntax.lua") + "':"))
        << result.err;
    EXPECT_TRUE(Contains(result.err, "syntax.lua:3: ")) << result.err;
}

struct CErrorValue
{
    const char* raise;
    const char* text;
};

constexpr CErrorValue kErrorValues[] = {
    {"error({})", "{}\nstack traceback:"},
    {"error({code = 7, why = {'a'}})",
     "{code = 7, why = {[1] = \"a\"}}\nstack traceback:"},
    {"error(nil)", "(error object is a nil value)\n"},
    {"error(dom)", "(error object is a userdata value)\n"},
    {"error(true)", "(error object is a boolean value)\n"},
    {"error(io.stdout)", "file ("}, // a userdata with its own __tostring
    {"error(setmetatable({}, {__tostring = function() return 'mine' end}))",
     "mine\nstack traceback:"},
    {"error(setmetatable({}, {__tostring = function() return 3 end}))",
     "3\nstack traceback:"},
    {"error(setmetatable({}, {__tostring = function() error('x') end}))", ""},
    {"error(42, 0)", "42\nstack traceback:"},
    {"error('a\\0b', 0)", ""},
    {"error('\\255\\254', 0)", "\u00ff\u00fe\nstack traceback:"},
};

TEST(Script, AnErrorValueOfAnyTypeIsShown)
{
    const CHost host(false);
    for (const CErrorValue& value : kErrorValues)
    {
        SCOPED_TRACE(value.raise);
        const CProcessResult result =
            host.RunTool("errorvalue", "return {main = function() " +
                                           std::string(value.raise) + " end}");
        EXPECT_GT(result.status, 0);
        EXPECT_LT(result.status, 7);
        EXPECT_EQ(result.err.substr(0, std::string(value.text).size()),
                  value.text);
    }
}

TEST(Script, DeepRecursionIsAnError)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "deep", "local function f() return 1 + f() end return {main = f}");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(Contains(result.err, "stack overflow")) << result.err;
}

// --- What the log says ------------------------------------------------------

// The log of a tool without what differs from run to run.
std::vector<std::string> LogOf(const CHost& host, const std::string& name)
{
    std::vector<std::string> records;
    for (const std::string& line :
         ReadLogLines(host.File("work/log/" + name + ".log")))
        records.push_back(RecordText(line));
    return records;
}

TEST(Script, AFailureOfLuaIsInTheLogToo)
{
    const CHost host(false);
    const CProcessResult result =
        host.RunTool("failing", "return {main = function() error('boom') end}");
    const std::string file = host.File("lua/failing.lua");
    EXPECT_EQ(result.err.substr(0, result.err.find(" in function")),
              file + ":1: boom\nstack traceback:\n\t[C]:");
    std::string shown = result.err.substr(0, result.err.size() - 1);
    for (std::size_t at = 0; (at = shown.find('\n', at)) != std::string::npos;)
        shown.replace(at, 1, "\\n");
    EXPECT_EQ(LogOf(host, "failing"),
              std::vector<std::string>{"ERROR Lua: " + shown});
}

TEST(Script, AFailureOfLuaIsShownOnceOnStandardError)
{
    const CHost host(false);
    for (const char* const source :
         {"return {main = function() error('boom') end}", "error('boom')"})
    {
        SCOPED_TRACE(source);
        const CProcessResult result =
            host.RunTool("once", source, {"--domain_var", "log.console=true"});
        EXPECT_EQ(CountOf(result.err, "boom"), 1) << result.err;
    }
    EXPECT_EQ(CountOf(host.Log("once"), "ERROR Lua: "), 2);
}

TEST(Script, AFailureOfLuaInTheBackgroundIsInTheLog)
{
    const CService service("failing");
    service.SetModule("return {main = function() error('boom') end}");
    ASSERT_TRUE(service.StartUntil("The service ends"));
    EXPECT_TRUE(service.WaitUntilGone());
    const std::string place = service.Host().File("lua/failing.lua") + ":1";
    const std::vector<std::string> expected = {
        "MESSAGE kza: failing is up",
        "ERROR Lua: " + place +
            ": boom\\nstack traceback:\\n\t[C]: in function 'error'\\n\t" +
            place + ": in function <" + place + ">\\n\t(...tail calls...)",
        "INFO kza: Child process exited with status 512 (exit 2)",
        "ERROR kza: The service ends with status 2"};
    EXPECT_EQ(service.Records(), expected);
}

TEST(Script, AFailureOfTheTestDriverIsInTheLog)
{
    const CHost host(false);
    host.AddModule("tests/kzaunit", "error('no driver', 0)");
    WriteFile(host.File("my_test.lua"), "");
    EXPECT_EQ(host.RunTool("tested", "return {init = function() end}",
                           {"--unittest", host.File("my_test.lua")})
                  .status,
              2);
    EXPECT_EQ(LogOf(host, "tested"),
              std::vector<std::string>{
                  "ERROR Lua: no driver\\nstack traceback:\\n\t[C]: in "
                  "function 'error'\\n\t" +
                  host.File("lua/tests/kzaunit.lua") +
                  ":1: in main chunk\\n\t[C]: in function "
                  "'require'\\n\ttests.kzaunit:1: in main chunk"});
}

TEST(Script, AStatusOfTheScriptsOwnIsNoErrorInTheLog)
{
    const CHost host(false);
    EXPECT_EQ(host.RunTool("status", "return {main = function() return 7 end}")
                  .status,
              7);
    EXPECT_EQ(host.Log("status"), "");
}

TEST(Script, AModuleThatIsMissingOrBrokenIsInTheLog)
{
    const CHost host(false);
    EXPECT_EQ(host.Run({"--appname", "nowhere"}).status, 2);
    ASSERT_EQ(LogOf(host, "nowhere").size(), 1U);
    EXPECT_EQ(LogOf(host, "nowhere")[0].find(
                  "ERROR Lua: nowhere:1: module 'nowhere' not found:\\n\tno "
                  "field package.preload['nowhere']\\n"),
              0U);
    EXPECT_EQ(host.RunTool("broken", "return +").status, 2);
    ASSERT_EQ(LogOf(host, "broken").size(), 1U);
    EXPECT_EQ(LogOf(host, "broken")[0].find("ERROR Lua: error loading module "
                                            "'broken' from file '"),
              0U);
}

struct COddResult
{
    const char* result;
    const char* warning; // what follows "'main' returned "; empty for none
};

constexpr COddResult kOddResults[] = {
    {"", ""},
    {"nil", ""},
    {"0", ""},
    {"7", ""},
    {"255", ""},
    {"'12'", ""},
    {"' 0x10 '", ""},
    {"nil, 7", ""},
    {"7, 'text'", ""},
    {"true", "true, neither a number nor nothing: taken as success"},
    {"false", "false, neither a number nor nothing: taken as success"},
    {"{}", "a table, neither a number nor nothing: taken as success"},
    {"print", "a function, neither a number nor nothing: taken as success"},
    {"'no\\nroute'", "the text 'no\\nroute', neither a number nor nothing: "
                     "taken as success"},
    {"''", "the text '', neither a number nor nothing: taken as success"},
    {"nil, 'no route'",
     "nil and 'no route', Lua's way to fail: taken as success"},
    {"false, 'no route'",
     "false, neither a number nor nothing: taken as success"},
    {"256", "256, which is no whole number from 0 to 255: taken as 256"},
    {"-1", "-1, which is no whole number from 0 to 255: taken as -1"},
    {"3.5", "3.5, which is no whole number from 0 to 255: taken as 3"},
    {"'3.5'", "3.5, which is no whole number from 0 to 255: taken as 3"},
    {"2^32", "4294967296, which is no whole number from 0 to 255: taken as 0"},
};

TEST(Script, AResultThatIsNoStatusIsAWarning)
{
    const CHost host(false);
    for (const COddResult& odd : kOddResults)
    {
        SCOPED_TRACE(odd.result);
        std::filesystem::remove_all(host.Work());
        EXPECT_NE(host.RunTool("odd", "return {main = function() return " +
                                          std::string(odd.result) + " end}")
                      .status,
                  2)
            << "no error of Lua's";
        std::vector<std::string> expected;
        if (*odd.warning != '\0')
            expected.push_back("WARNING kza: 'main' returned " +
                               std::string(odd.warning));
        EXPECT_EQ(LogOf(host, "odd"), expected);
    }
}

TEST(Script, EachFunctionIsNamedInTheWarning)
{
    const CHost host(false);
    EXPECT_EQ(host.RunTool("each",
                           "local function no() return nil, 'no' end\n"
                           "return {init = no, main = no, shutdown = no}")
                  .status,
              0);
    const std::string rest =
        "' returned nil and 'no', Lua's way to fail: taken as success";
    EXPECT_EQ(LogOf(host, "each"),
              (std::vector<std::string>{"WARNING kza: 'init" + rest,
                                        "WARNING kza: 'main" + rest,
                                        "WARNING kza: 'shutdown" + rest}));
}

TEST(Script, AModuleThatLooksForgottenIsAWarning)
{
    const std::string noTable = ": it should end by returning the table of its "
                                "functions";
    const std::pair<const char*, std::string> cases[] = {
        {"", "is no table but a boolean" + noTable},
        {"return 'text'", "is no table but a string" + noTable},
        {"return print", "is no table but a function" + noTable},
        {"return {}", "has none of the functions 'init', 'main' and "
                      "'shutdown'"},
        {"return {main = 'text', Main = print}",
         "has none of the functions 'init', 'main' and 'shutdown'"},
        {"return {init = print}", ""},
        {"return {shutdown = print}", ""},
        {"return setmetatable({}, {__index = {main = print}})", ""},
        {"return setmetatable({}, {__index = function() error('x') end})", ""},
    };
    const CHost host(false);
    for (const auto& [source, problem] : cases)
    {
        SCOPED_TRACE(source);
        std::filesystem::remove_all(host.Work());
        EXPECT_EQ(host.RunTool("forgotten", source).signal, 0);
        std::vector<std::string> warnings;
        for (const std::string& record : LogOf(host, "forgotten"))
            if (record.find("WARNING") == 0)
                warnings.push_back(record);
        std::vector<std::string> expected;
        if (!problem.empty())
            expected.push_back("WARNING kza: Module 'forgotten' " + problem);
        EXPECT_EQ(warnings, expected);
    }
}

TEST(Script, AServiceWhoseInitFailsIsNeverUp)
{
    const CService service("downservice");
    service.SetModule("return {init = function() return 4 end}");
    ASSERT_TRUE(service.StartUntil("(exit 4)"));
    EXPECT_TRUE(service.WaitUntilGone());
    EXPECT_EQ(CountOf(service.Log(), "is up"), 0);
}

// --- Output ----------------------------------------------------------------

TEST(Script, PrintAndWriteKeepTheirOrder)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "order", "return {main = function()\n"
                 "  for i = 1, 3 do print('p', i, nil) io.write('w\\n') "
                 "end end,\n"
                 "shutdown = function() print('still open') end}");
    EXPECT_EQ(result.out,
              "p\t1\tnil\nw\np\t2\tnil\nw\np\t3\tnil\nw\nstill open\n");
}

TEST(Script, WhatIsPrintedStandsBeforeWhatAChildWrites)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "children", "return {main = function()\n"
                    "  for i = 1, 3 do\n"
                    "    io.write('w') print(i) os.execute('echo child')\n"
                    "  end end}");
    EXPECT_EQ(result.out, "w1\nchild\nw2\nchild\nw3\nchild\n");
}

TEST(Script, WhatIsPrintedSurvivesAKill)
{
    const CHost host(false);
    const CProcessResult result =
        host.RunTool("killed", "return {main = function()\n"
                               "  print('last words')\n"
                               "  os.execute('kill -9 $PPID') end}");
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.out, "last words\n");
}

// Standard output is a device that takes nothing.
void UseFullOutput()
{
    const int full = open("/dev/full", O_WRONLY);
    if (full < 0 || dup2(full, STDOUT_FILENO) < 0)
        _exit(125);
}

// Standard output is a pipe that has no reader.
void UseClosedPipe()
{
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0)
        _exit(125);
    close(ends[0]);
    close(ends[1]);
}

TEST(Script, AnOutputThatCannotBeWrittenIsSaidOnce)
{
    const std::pair<void (*)(), const char*> cases[] = {
        {UseFullOutput, "No space left on device"},
        {UseClosedPipe, "Broken pipe"},
    };
    for (const auto& [prepare, reason] : cases)
    {
        SCOPED_TRACE(reason);
        const CHost host(false);
        CProcessOptions options;
        options.inChild = prepare;
        const CProcessResult result =
            host.RunTool("mute",
                         "local function say() for i = 1, 1000 do print(i) end "
                         "end\n"
                         "return {init = say, main = say, shutdown = say}",
                         {}, options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        const std::string log = host.Log("mute");
        EXPECT_EQ(RecordText(log.substr(0, log.find('\n'))),
                  "WARNING kza: Standard output cannot be written: " +
                      std::string(reason));
        EXPECT_EQ(CountOf(log, "\n"), 1) << log;
    }
}

TEST(Script, WhatAScriptWritesIsFlushedByTheScriptAlone)
{
    const CHost host(false);
    CProcessOptions options;
    options.inChild = UseFullOutput;
    const CProcessResult result =
        host.RunTool("buffered", "return {main = function() io.write('x') end}",
                     {}, options);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(host.Log("buffered"), "");
}

TEST(Script, BothStandardStreamsStayUsableAfterAMessage)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "streams",
        "return {main = function() io.stderr:write('narrow\\n') end}",
        {"--domain_var", "invalid"});
    EXPECT_TRUE(Contains(result.err, "expected name=value format\nnarrow\n"))
        << result.err;
}

TEST(Script, ALargeValueGoesThroughTheDomain)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "large", "return {main = function()\n"
                 "  local text = ('x'):rep(10 * 1024 * 1024)\n"
                 "  dom:Set('big', text)\n"
                 "  return dom:Get('big') == text and 5 or 6 end}");
    EXPECT_EQ(result.status, 5) << result.err;
}

// --- Ends and signals ------------------------------------------------------

TEST(Script, TheAgentsStatusGoesThroughTheMainLoop)
{
    const CHost host(false);
    host.AddModule("kz_agent",
                   "return {main = function() require('mainloop').wait() "
                   "return 3 end}");
    const CProcessResult result =
        host.Run({"--lua_path", KZA_SOURCE_DIR "/tests/support/lua/?.lua"});
    EXPECT_EQ(result.status, 3) << result.err;
    const std::string log = host.Log();
    EXPECT_TRUE(Contains(log, "KZA 12.0.0.2932 starting.")) << log;
    EXPECT_FALSE(Contains(log, "exiting. Run time was")) << log;
}

TEST(Script, AToolDoesNotAnnounceItsStart)
{
    const CHost host(false);
    EXPECT_EQ(host.RunTool("quiet", "return {main = print}").status, 0);
    EXPECT_EQ(host.Log("quiet"), "");
}

constexpr char kWaitForFile[] =
    "local name = arg[1]\n"
    "return {main = function()\n"
    "  print('ready') io.stdout:flush()\n"
    "  while not io.open(name) do dom:Sleep(5) end\n"
    "  return 8 end}";

TEST(Script, SigtermInTheForegroundStaysPending)
{
    const CHost host(false);
    host.AddModule("pending", kWaitForFile);
    CProcess agent(host.Words({"--appname", "pending", "--", host.File("go")}));
    ASSERT_TRUE(WaitUntil([&] { return agent.Out() == "ready\n"; }));
    agent.Signal(SIGTERM);
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            // ShdPnd: the process's pending signals, SIGTERM is bit 14.
            const std::string status =
                ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
            return Contains(status, "ShdPnd:\t0000000000004000");
        }));
    WriteFile(host.File("go"), "");
    EXPECT_EQ(agent.Wait().status, 8);
}

TEST(Script, SigintEndsTheForegroundAtOnceWithZero)
{
    const CHost host(false);
    host.AddModule("interrupted", kWaitForFile);
    CProcess agent(
        host.Words({"--appname", "interrupted", "--", host.File("never")}));
    ASSERT_TRUE(WaitUntil([&] { return agent.Out() == "ready\n"; }));
    agent.Signal(SIGINT);
    const CProcessResult result = agent.Wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.signal, 0);
}

TEST(Script, TheTraceTellsWhichChunksRan)
{
    const CHost host(false);
    EXPECT_EQ(host.RunTool("traced", "return {main = function() return 3 end}",
                           {"--trace", "Appl"})
                  .status,
              3);
    const std::string log = host.Log("traced");
    std::size_t at = 0;
    for (const char* text : {"RunChunk Running chunk 'traced'",
                             "RunChunk Chunk produced a return value of 0",
                             "RunAppMethod Running app's Lua method 'init'",
                             "RunAppMethod Running app's Lua method 'main'",
                             "RunChunk Chunk produced a return value of 3"})
    {
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\nin\n" << log;
    }
}

TEST(Script, TheTraceShowsTheErrorCodeOfAChunk)
{
    const CHost host(false);
    EXPECT_EQ(
        host.RunTool("failed", "error('boom')", {"--trace", "Appl"}).status, 2);
    EXPECT_TRUE(Contains(host.Log("failed"),
                         "RunChunk Chunk produced a return value of 2\n"))
        << host.Log("failed");
}

} // namespace
