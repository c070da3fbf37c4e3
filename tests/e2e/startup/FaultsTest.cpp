// SPDX-License-Identifier: Apache-2.0
//
// Faults that no input reaches, brought about by a preloaded library.

#include "support/Host.h"
#include "support/Service.h"

#include <gtest/gtest.h>

using namespace TestSupport;

namespace
{

CProcessOptions WithFault(const std::string& name,
                          const std::string& report = std::string())
{
    CProcessOptions options;
    options.env = {{"LD_PRELOAD", KZA_BINARY_DIR "/tests/libfaults.so"},
                   {"KZA_FAULT", name},
                   {"KZA_FAULT_REPORT", report},
                   // The sanitizer wants to be the first library.
                   {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
    return options;
}

TEST(Faults, LuaThatCannotBeSetUpIsSaidAndNothingRuns)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "unset", "print('loaded') return {}", {}, WithFault("lua_stack"));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "Error setting up Lua:\n"
                          "stack overflow (too many arguments to script)\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(RecordText(ReadLogLines(host.File("work/log/unset.log")).at(0)),
              "ERROR Lua: Error setting up Lua:\\nstack overflow (too many "
              "arguments to script)");
}

TEST(Faults, AnotherLuaIsRefused)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "other", "print('loaded') return {}", {}, WithFault("lua_version"));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "Error setting up Lua:\nnot version 502\n");
    EXPECT_EQ(result.out, "");
}

TEST(Faults, AnExceptionThatEscapesTheScriptThreadEndsWith255)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "escape", "return {}", {"--trace", "Appl"}, WithFault("lua_newstate"));
    EXPECT_EQ(result.status, 255);
    const std::string log = host.Log("escape");
    EXPECT_NE(log.find("OnUnhandledException()\n"), std::string::npos) << log;
    EXPECT_NE(log.find("OnUnhandledException() - caught unhandled "
                       "std::exception of type \"St9bad_alloc\", what() = "
                       "\"std::bad_alloc\", terminating app."),
              std::string::npos)
        << log;
}

TEST(Faults, AServiceThatCannotWaitForItsEndShutsDown)
{
    const CService service("nowait");
    service.SetModule("return {\n"
                      "  main = function() require('mainloop').wait() end,\n"
                      "  shutdown = function()\n"
                      "    dom:Log('message', 'shutdown') return 7 end }");
    CServiceOptions options;
    options.process = WithFault("sigwait");
    ASSERT_TRUE(service.StartUntil("exited with status", options));
    EXPECT_TRUE(service.WaitUntilGone());
    const std::vector<std::string> expected = {
        "MESSAGE kza: nowait is up",
        "ERROR kza: sigwait (error 22: Invalid argument)",
        "MESSAGE kza: shutdown",
        "INFO kza: Child process exited with status 1792 (exit 7)",
        "ERROR kza: The service ends with status 7"};
    EXPECT_EQ(service.Records(), expected);
}

TEST(Faults, StartUpGivesUpOnEntropyAfterAHundredPolls)
{
    const CHost host(false);
    const std::string report = host.File("polls");
    const CProcessResult result =
        host.RunTool("entropy", "return {main = function() return 4 end}", {},
                     WithFault("rand_status", report));
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_EQ(result.err, "\n");
    EXPECT_EQ(ReadFile(report), "100");
}

} // namespace
