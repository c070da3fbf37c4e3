// SPDX-License-Identifier: Apache-2.0
//
// What the application object does once per process, and names that it gives.

#include "AgentApp.h"

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/SqliteDatabase.h"

#include "support/DomPtr.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/evtloop.h>
#include <wx/init.h>
#include <wx/log.h>

using namespace TestSupport;

namespace
{

// Makes the application and starts it up with these words, which name a program
// in a directory of the test's own. For a child.
CAgentApp& StartUp(std::vector<std::string> words)
{
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(words.size());
    if (!wxInitialize(argc, argv.data()) || !wxGetApp().OnInit())
        std::_Exit(99);
    return wxGetApp();
}

// Expects that a step answers true. In a child, for it changes the process.
void ExpectInChild(const std::function<bool()>& step)
{
    EXPECT_EXIT(std::_Exit(step() ? 7 : 1), testing::ExitedWithCode(7), "");
}

// The framework's loop with something to end it when nothing else does.
int StatusOfALoop(CAgentApp& app, int status)
{
    app.CallAfter([status] { wxEventLoopBase::GetActive()->Exit(status); });
    return app.MainLoop();
}

// What a key holds, as the application's script sees it.
bool Holds(CAgentApp& app, const wxString& key, const wxString& value)
{
    return app.RunCodeSnippet("return dom:Get('" + key + "') == [[" + value +
                              "]] and 1 or 2") == 1;
}

// SQLite takes no setting while it runs.
bool SqliteRuns()
{
    return sqlite3_config(SQLITE_CONFIG_MULTITHREAD) == SQLITE_MISUSE;
}

bool SecondCleanUpDoesNothing()
{
    const DomPtr dom = NewDom();
    dom->Set("sqlite.config.uri", 0LL);
    KzaCore::CSqliteDatabase::InitializeSQLite(*dom);
    const bool ran = SqliteRuns();
    CAgentApp::TerminationCleanup();
    const bool wasShutDown = !SqliteRuns();
    sqlite3_initialize();
    CAgentApp::TerminationCleanup();
    return ran && wasShutDown && SqliteRuns();
}

} // namespace

TEST(AgentApp, LibrariesAreShutDownOnce)
{
    // In a process of its own: nothing may use the libraries afterwards.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        _exit(SecondCleanUpDoesNothing() ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(AgentApp, LogsToTheDisk)
{
    CAgentAppTraits traits;
    const std::unique_ptr<wxLog> target(traits.CreateLogTarget());
    EXPECT_NE(dynamic_cast<KzaCore::CLog2Disk*>(target.get()), nullptr);
}

TEST(AgentApp, TracesUnderAppl)
{
    EXPECT_EQ(CAgentApp::s_Trace, "Appl");
}

TEST(AgentApp, ScriptThreadHasItsName)
{
    const wxInitializer framework; // for its threads
    const CScriptThread thread;
    EXPECT_STREQ(thread.GetThreadName(), L"CScriptThread");
}

TEST(AgentAppDeathTest, ConfiguresTheFrameworksLog)
{
    ExpectInChild(
        []
        {
            const CAgentApp app;
            return wxLog::GetVerbose() && wxLog::GetLogLevel() == wxLOG_Info &&
                   wxLog::GetTimestamp() == "%Y-%m-%d %H:%M:%S";
        });
}

TEST(AgentAppDeathTest, IsNothingInParticularBeforeItsStart)
{
    ExpectInChild(
        []
        {
            const CAgentApp app;
            return !app.IsDefaultApp() && !app.IsBackground();
        });
}

TEST(AgentAppDeathTest, NamesItsVendor)
{
    const CTempDir dir;
    ExpectInChild(
        [&] {
            return StartUp({dir.File("kz_agent")}).GetVendorName() == "Orvalis";
        });
}

// A script can be that fast. Its status is lost then, and the run goes on.
TEST(AgentAppDeathTest, AsksNoLoopToExitThatWasNotEntered)
{
    const CTempDir dir;
    ExpectInChild(
        [&]
        {
            CAgentApp& app = StartUp({dir.File("kz_agent")});
            app.EndRun(3);
            return StatusOfALoop(app, 9) == 9;
        });
}

TEST(AgentAppDeathTest, ForgetsTheArchivesOfTheCommandLineOnceListed)
{
    const CTempDir dir;
    for (const char* file :
         {"kza_core/twice.kze", "kza_core/kza.kze", "x/a.kze", "ext/e.kze"})
        WriteFile(dir.File(file), "");
    WriteFile(dir.File("ext/e.kze.version"), "version: 12.0.0-1\n");
    WriteFile(dir.File("lua/twice.lua"), "return {}");
    const std::string core =
        dir.File("kza_core/twice.kze") + ";" + dir.File("kza_core/kza.kze");
    const std::string extension = ";" + dir.File("ext/e.kze");
    ExpectInChild(
        [&]
        {
            CAgentApp& app = StartUp(
                {dir.File("twice"), "--zippath", "x/a.kze", "--extdir", "ext"});
            if (app.RunAppInit() != 0 ||
                !Holds(app, "app.lua.zippath",
                       core + ";" + dir.File("x/a.kze") + extension))
                return false;
            app.ExpandZippath();
            return Holds(app, "app.lua.zippath", core + extension);
        });
}
