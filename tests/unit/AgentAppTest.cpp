// SPDX-License-Identifier: Apache-2.0
//
// What the application object does once per process, and names that it gives.

#include "AgentApp.h"

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/SqliteDatabase.h"

#include "support/DomPtr.h"

#include <gtest/gtest.h>

#include <memory>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wx/init.h>

namespace
{

// SQLite takes no setting while it runs.
bool SqliteRuns()
{
    return sqlite3_config(SQLITE_CONFIG_MULTITHREAD) == SQLITE_MISUSE;
}

bool SecondCleanUpDoesNothing()
{
    const TestSupport::DomPtr dom = TestSupport::NewDom();
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
