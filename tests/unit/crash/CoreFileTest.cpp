// SPDX-License-Identifier: Apache-2.0
//
// Where no dump can be written: the system's core file stands in.

#include "kza_core/CrashHandler.h"

#include <gtest/gtest.h>

#include <wx/log.h>
#include <wx/string.h>

#include <csignal>

#include <sys/resource.h>

TEST(CoreFile, StandsInForTheDumpAndTheLogSaysSo)
{
    wxLogBuffer* records = new wxLogBuffer;
    wxLog* before = wxLog::SetActiveTarget(records);
    const bool verbose = wxLog::GetVerbose();
    wxLog::SetVerbose();
    rlimit limit = {};
    getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_CORE, &limit);

    KzaCore::InitCrashHandler(wxS("/tmp/t.mdmp"), wxS("tool"), false);

    rlimit after = {};
    getrlimit(RLIMIT_CORE, &after);
    EXPECT_EQ(after.rlim_cur, limit.rlim_max);
    EXPECT_NE(records->GetBuffer().Find(
                  "/tmp/t.mdmp is not written on this system; a crash leaves "
                  "the system's own core file"),
              wxNOT_FOUND);
    struct sigaction action = {};
    sigaction(SIGSEGV, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    wxLog::SetVerbose(verbose);
    delete wxLog::SetActiveTarget(before);
}
