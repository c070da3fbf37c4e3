// SPDX-License-Identifier: Apache-2.0
//
// os.execute and io.popen: as Lua's own, but the child's signals are clean.

#include "support/Host.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

// What a tool prints that runs the code; `show` prints its arguments.
std::string Output(const std::string& code, const CHost& host = CHost(false))
{
    const CProcessResult result = host.RunTool(
        "children",
        "local function show(...)\n"
        "  local words = table.pack(...)\n"
        "  for i = 1, words.n do words[i] = tostring(words[i]) end\n"
        "  print(table.concat(words, ' '))\n"
        "end\n"
        "return { main = function()\n" +
            code + "\nend }\n");
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

struct CCase
{
    const char* name;
    const char* code;
    const char* output;
};

void PrintTo(const CCase& test, std::ostream* out)
{
    *out << test.name;
}

class LuaProcess : public testing::TestWithParam<CCase>
{
};

TEST_P(LuaProcess, AnswersAsLuasOwn)
{
    EXPECT_EQ(Output(GetParam().code), GetParam().output);
}

const CCase kCases[] = {
    {"ExecuteTellsThatThereIsAShell", "show(os.execute())", "true\n"},
    {"ExecuteSucceeds", "show(os.execute('true'))", "true exit 0\n"},
    {"ExecuteTellsTheStatus", "show(os.execute('exit 7'))", "nil exit 7\n"},
    {"ExecuteTellsTheSignal", "show(os.execute('kill -9 $$'))",
     "nil signal 9\n"},
    {"ExecuteOfNoProgram", "show(os.execute('/no/such/program 2>&-'))",
     "nil exit 127\n"},
    {"ExecuteOfATable", "show(pcall(os.execute, {}))",
     "false bad argument #1 to 'os.execute' (string expected, got table)\n"},
    {"ExecuteWritesAfterTheScript",
     "io.write('first ') io.flush() os.execute('printf second')",
     "first second"},
    {"PopenReadsLinesAndTellsTheStatus",
     "local p = io.popen('printf \"a\\nb\\n\"; exit 3')\n"
     "show(io.type(p), p:read('*l'), p:read('*l'), p:read('*l'))\n"
     "show(p:close()) show(io.type(p))",
     "file a b nil\nnil exit 3\nclosed file\n"},
    {"PopenGivesLines",
     "for line in io.popen('printf \"1\\n2\\n\"'):lines() do show(line) end",
     "1\n2\n"},
    {"PopenWrites",
     "local p = io.popen('cat', 'w')\n"
     "p:write('to the child\\n') show(p:close())",
     "to the child\ntrue exit 0\n"},
    {"PopenTakesTheModeOfTheSystem", "show(io.popen('true', 're'):close())",
     "true exit 0\n"},
    {"PopenTellsTheSignal", "show(io.popen('kill -TERM $$'):close())",
     "nil signal 15\n"},
    {"PopenWithTwoDirections", "show(io.popen('true', 'rw'))",
     "nil true: Invalid argument 22\n"},
    {"PopenWithNoDirection", "show(io.popen('true', ''))",
     "nil true: Invalid argument 22\n"},
    {"PopenOfNothing", "show(pcall(io.popen))",
     "false bad argument #1 to 'io.popen' (string expected, got no value)\n"},
    {"PopenClosedTwice",
     "local p = io.popen('true') p:close()\n"
     "show(pcall(p.close, p))",
     "false attempt to use a closed file\n"},
    {"PopenIsWaitedForWhenCollected",
     "io.popen('sleep 0.05; echo waited for >&1', 'w')\n"
     "collectgarbage() show('collected')",
     "waited for\ncollected\n"},
};

INSTANTIATE_TEST_SUITE_P(LuaProcess,
                         LuaProcess,
                         testing::ValuesIn(kCases),
                         [](const auto& test)
                         { return std::string(test.param.name); });

TEST(LuaProcessChild, DoesNotHoldTheOtherEndOfAnEarlierPipe)
{
    // cat ends once the last writer of its pipe is gone.
    EXPECT_EQ(Output("local cat = io.popen('cat', 'w')\n"
                     "local later = io.popen('sleep 1000 & echo $!')\n"
                     "local pid = later:read('*n')\n"
                     "show(cat:close()) os.execute('kill ' .. pid)"),
              "true exit 0\n");
}

TEST(LuaProcessChild, InheritsTheStandardDescriptorsAlone)
{
    // A descriptor that any program would inherit, as a C module may open one.
    CProcessOptions options;
    options.inChild = []
    {
        if (dup2(open("/etc/passwd", O_RDONLY), 77) < 0)
            _exit(125);
    };
    const CHost host(false);
    for (const char* const call :
         {"os.execute(c)", "io.write(io.popen(c):read('*a'))",
          "io.popen(c, 'w'):close()"})
    {
        SCOPED_TRACE(call);
        const CProcessResult result =
            host.RunTool("children",
                         "local c = 'echo /proc/self/fd/*'\n"
                         "return {main = function() " +
                             std::string(call) + " end}",
                         {}, options);
        // The shell's pattern is expanded with the directory open.
        EXPECT_EQ(result.out, "/proc/self/fd/0 /proc/self/fd/1 "
                              "/proc/self/fd/2 /proc/self/fd/3\n");
    }
}

TEST(LuaProcessChild, HasAnEmptyMaskAndIgnoresNothing)
{
    for (const char* const call :
         {"os.execute(c)", "io.write(io.popen(c):read('*a'))",
          "io.popen(c, 'w'):close()"})
    {
        SCOPED_TRACE(call);
        const std::string output =
            Output("local c = [[grep -E '^Sig(Blk|Ign)' /proc/self/status]]\n" +
                   std::string(call));
        EXPECT_NE(output.find("SigBlk:\t0000000000000000\n"), std::string::npos)
            << output;
        // SIGHUP and SIGPIPE are the two that the agent ignores.
        const std::size_t at = output.find("SigIgn:\t");
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(strtoul(&output[at + 8], nullptr, 16) & 0x7FFFFFFFUL, 0U)
            << output;
    }
}

TEST(LuaProcessChild, DiesOfSigtermInTheService)
{
    const CService service("children");
    service.SetModule(
        "return { main = function()\n"
        "  local _, how, what = os.execute('kill -TERM $$; sleep 1000')\n"
        "  dom:Log('message', 'execute: ' .. how .. what)\n"
        "  _, how, what = io.popen('kill -TERM $$; sleep 1000'):close()\n"
        "  require('mainloop').wait()\n"
        "  dom:Log('message', 'popen: ' .. how .. what)\n"
        "end }");
    ASSERT_TRUE(service.StartUntil("popen: "));
    EXPECT_EQ(CountOf(service.Log(), "execute: signal15"), 1);
    EXPECT_EQ(CountOf(service.Log(), "popen: signal15"), 1);
    EXPECT_TRUE(service.Stop());
}

} // namespace
