// SPDX-License-Identifier: Apache-2.0
//
// Step: unit tests instead of the application's main, on the script thread.
//
// The driver is the Lua module tests.kzaunit; it gets the pattern as it
// was given and expands wildcards itself.

#include "AgentApp.h"

#include <unistd.h>

int CAgentApp::RunUnitTests()
{
    if (m_unitTestScript.empty())
        return 0;

    // Never cancelled: all it does is interrupt a blocking call of a test run
    // that hangs.
    constexpr unsigned kAlarmSeconds = 600;
    alarm(kAlarmSeconds);

    return RunToStandardOutput(
        "kzaunit = require('tests.kzaunit'); return kzaunit(\"" +
            m_unitTestScript + "\");",
        "tests.kzaunit");
}
