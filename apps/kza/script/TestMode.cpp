// SPDX-License-Identifier: Apache-2.0
//
// Step: unit tests instead of the application's main, on the script thread.
//
// The driver is the Lua module tests.kzaunit. It gets the pattern of the
// command line and expands wildcards itself.

#include "AgentApp.h"
#include "script/StandardOutput.h"

#include <wx/sstream.h>

#include <unistd.h>

int CAgentApp::RunUnitTests()
{
    if (m_unitTestScript.empty())
        return 0;

    // The alarm is never cancelled: it only interrupts a blocking call of a
    // test run that hangs.
    constexpr unsigned kAlarmSeconds = 600;
    alarm(kAlarmSeconds);

    CStandardOutput out;
    wxStringInputStream in(
        "kzaunit = require('tests.kzaunit'); return kzaunit(\"" +
        m_unitTestScript + "\");");
    const int status = RunChunk(in, out, "tests.kzaunit");
    out.Sync();
    if (status != 0)
        ReportFailure();
    return status;
}
