// SPDX-License-Identifier: Apache-2.0
//
// kzrun in the foreground: signals, and the watch over a project's files.

#include "e2e/tools/Project.h"

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// Shows the process that runs it, and waits.
const std::string kWaits = R"(
local stat = io.open("/proc/self/stat"):read("*a")
return { main = function()
    print("pid " .. stat:match("^%d+") .. ".")
    dom:Sleep(600000)
end })";

pid_t AgentOf(const CProcess& kzrun)
{
    EXPECT_TRUE(WaitForOut(kzrun, "."));
    return PidIn(kzrun.Out().substr(4));
}

TEST(Kzrun, SignalsThatEndAProgramEndBoth)
{
    const CProject project(kWaits);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        SCOPED_TRACE(signal);
        CProcess kzrun(project.Words());
        const pid_t agent = AgentOf(kzrun);
        kzrun.Signal(signal);
        EXPECT_EQ(kzrun.Wait().status, 0);
        EXPECT_FALSE(IsRunning(agent));
    }
}

TEST(Kzrun, ApplicationThatOutlivesCtrlCIsEnded)
{
    const CProject project(R"(
        return { main = function()
            local signal = require("posix.signal")
            signal.signal(signal.SIGINT, signal.SIG_IGN)
            print("waits.")
            dom:Sleep(600000)
        end })");
    CProcess kzrun(project.Words());
    ASSERT_TRUE(WaitForOut(kzrun, "waits."));
    // The first one asks, a later one does not wait for an answer.
    EXPECT_TRUE(WaitUntil(
        [&kzrun]
        {
            kzrun.Signal(SIGTERM);
            return kzrun.HasEnded();
        }));
    EXPECT_EQ(kzrun.Wait().status, 0);
}

TEST(Kzrun, RecordsOfInfoAreShownAndTheProjectHasTheLastWord)
{
    const CProject project(R"(
        return { main = function()
            dom:Log("info", "of info")
            dom:Log("debug", "of debug")
        end })");
    CProcessResult result = TestSupport::Run(project.Words());
    EXPECT_NE(result.err.find("of info"), std::string::npos);
    EXPECT_EQ(result.err.find("of debug"), std::string::npos);
    EXPECT_EQ(result.out, "");

    for (const char* own : {"log.console=error", " Log.Console = error"})
    {
        project.Write("kz_agent.ini",
                      std::string("FIPSMode=0\n[Domain]\n") + own);
        result = TestSupport::Run(project.Words());
        EXPECT_EQ(result.err.find("of info"), std::string::npos) << own;
    }
}

// --- --watch ---------------------------------------------------------------

std::string Says(const std::string& text)
{
    return "return { main = function() print('" + text +
           ".') dom:Sleep(600000) end }";
}

void EndWatch(CProcess& kzrun)
{
    kzrun.Signal(SIGINT);
    EXPECT_EQ(kzrun.Wait().status, 0);
}

TEST(KzrunWatch, StartsAgainAfterAChange)
{
    const CProject project(Says("one"));
    CProcess kzrun(project.Words({"--watch"}));
    ASSERT_TRUE(WaitForOut(kzrun, "one."));
    project.Write("src/demo.lua", Says("two"));
    EXPECT_TRUE(WaitForOut(kzrun, "two."));
    EXPECT_NE(
        kzrun.Err().find("kzrun: " + project.Dir() + "/src/demo.lua changed\n"),
        std::string::npos);
    EndWatch(kzrun);
}

TEST(KzrunWatch, EverythingThatBelongsToTheProjectCounts)
{
    const CProject project(Says("up"));
    CProcess kzrun(project.Words({"--watch"}));
    ASSERT_TRUE(WaitForOut(kzrun, "up."));
    int starts = 1;
    for (const char* name : {"src/demo/deep/part.lua", "data/a.txt",
                             "tests/a_test.lua", "lib/a.so", "kz_agent.ini"})
    {
        SCOPED_TRACE(name);
        for (const char* text : {"", "[domain]\n"})
        {
            project.Write(name, text);
            ++starts;
            EXPECT_TRUE(WaitUntil(
                [&] { return CountOf(kzrun.Out(), "up.") == starts; }));
        }
        fs::remove(project.Dir() + "/" + name);
        ++starts;
        EXPECT_TRUE(
            WaitUntil([&] { return CountOf(kzrun.Out(), "up.") == starts; }));
    }
    EndWatch(kzrun);
}

TEST(KzrunWatch, WhatEditorsAndTheAgentLeaveDoesNotCount)
{
    const CProject project(Says("up"));
    CProcess kzrun(project.Words({"--watch"}));
    ASSERT_TRUE(WaitForOut(kzrun, "up."));
    for (const char* name : {"src/.demo.lua.swp", "src/demo.lua~", "notes.txt",
                             ".kz/any", "lcov.info"})
        project.Write(name, "text");
    project.Write("src/demo.lua", Says("next"));
    ASSERT_TRUE(WaitForOut(kzrun, "next."));
    EXPECT_EQ(CountOf(kzrun.Out(), "up."), 1);
    EXPECT_EQ(CountOf(kzrun.Err(), " changed\n"), 1);
    EndWatch(kzrun);
}

TEST(KzrunWatch, WaitsAfterAnEndAndASyntaxError)
{
    const CProject project("return { main = function() return 3 end }");
    CProcess kzrun(project.Words({"--watch"}));
    EXPECT_TRUE(WaitForErr(
        kzrun, "kzrun: ended with status 3; waiting for a change\n"));
    project.Write("src/demo.lua", "return {");
    EXPECT_TRUE(WaitForErr(kzrun, "near <eof>"));
    EXPECT_TRUE(WaitForErr(
        kzrun, "kzrun: ended with status 2; waiting for a change\n"));
    project.Write("src/demo.lua", "return { main = function() end }");
    EXPECT_TRUE(WaitForErr(kzrun, "kzrun: ended; waiting for a change\n"));
    EndWatch(kzrun);
}

TEST(KzrunWatch, ModuleThatIsGoneMayComeBack)
{
    const CProject project(Says("one"));
    CProcess kzrun(project.Words({"--watch"}));
    ASSERT_TRUE(WaitForOut(kzrun, "one."));
    fs::remove(project.Dir() + "/src/demo.lua");
    EXPECT_TRUE(WaitForErr(kzrun, "kzrun: there is no module 'demo' in "));
    project.Write("src/demo.lua", Says("two"));
    EXPECT_TRUE(WaitForOut(kzrun, "two."));
    EndWatch(kzrun);
}

TEST(KzrunWatch, TestsRunAfterEachChange)
{
    const std::string module = "return { value = ";
    const CProject project(module + "1 }");
    project.Write("tests/a_test.lua", R"(
        function test_value()
            require("luaunit").assertEquals(kzaAppModule.value, 2)
        end)");
    CProcess kzrun(project.Words({"test", "--watch"}));
    EXPECT_TRUE(WaitForErr(kzrun, "kzrun: failed; waiting for a change\n"));
    project.Write("src/demo.lua", module + "2 }");
    EXPECT_TRUE(WaitForErr(kzrun, "kzrun: passed; waiting for a change\n"));
    EndWatch(kzrun);
}

TEST(KzrunWatch, SignalsThatEndAProgramEndBoth)
{
    const CProject project(kWaits);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        SCOPED_TRACE(signal);
        CProcess kzrun(project.Words({"--watch"}));
        const pid_t agent = AgentOf(kzrun);
        kzrun.Signal(signal);
        EXPECT_EQ(kzrun.Wait().status, 0);
        EXPECT_FALSE(IsRunning(agent));
    }
}

} // namespace
