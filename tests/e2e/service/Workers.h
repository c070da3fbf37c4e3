// SPDX-License-Identifier: Apache-2.0
//
// Words for tests of the service: workers that end in a given way, and the
// records of the log that follow.
//
// A test says what its worker does, lets the service run, and compares all that
// the service said with what it should have said. For a worker that ends with
// status 7, which ends the service:
//
//     const CService service;
//     service.SetModule(Ends(7));            // the worker's Lua
//     ASSERT_TRUE(service.StartUntil(kRuns)); // until a worker says that it
//     runs ASSERT_TRUE(service.WaitUntilGone()); const Lines expected =
//     {kStarting,      // the agent starts
//                             kUp,            // init has returned
//                             kWorkerRuns,    // the worker's own record
//                             Exited(7),      // what the watchdog saw
//                             ServiceEnds(7), // what came of it
//                             kExiting};      // the agent's last record
//     EXPECT_EQ(Said(service), expected);
//
// Other workers: EndsWhenTold(7) runs until Tell(service); EndsAtFirst(3, 2)
// ends with 3 in its first two lives and stays in the third; Worker("...") does
// what its Lua code says. A worker that stays is ended by CService::Stop().

#pragma once

#include "support/Service.h"

#include <string>
#include <vector>

namespace TestSupport
{

// --- Workers, as the source of the application's module --------------------

// What each worker logs when it is in its main.
inline constexpr char kRuns[] = "worker runs";

// Does what the Lua code says; without any, stays until the service is stopped.
inline std::string Worker(const std::string& code)
{
    return "local mainloop = require('mainloop')\n"
           "return { main = function()\n"
           "  dom:Log('message', 'worker runs')\n"
           "  mainloop.wait()\n" +
           code + "\nend }\n";
}

// Ends with the status at once.
inline std::string Ends(int status)
{
    return Worker("return " + std::to_string(status));
}

// Ends with the status after Tell().
inline std::string EndsWhenTold(int status)
{
    return Worker("while not io.open('told') do dom:Sleep(1) end return " +
                  std::to_string(status));
}

inline void Tell(const CService& service)
{
    WriteFile(service.Host().Work() + "/told", "");
}

// Ends with the status in so many first lives, and stays in the next one. Each
// life adds the host's uptime in seconds as a line of the file `lives` in the
// working directory.
inline std::string EndsAtFirst(int status, int lives = 1)
{
    return Worker("local uptime = io.open('/proc/uptime'):read('*n')\n"
                  "local file = io.open('lives', 'a+')\n"
                  "file:write(uptime, '\\n')\n"
                  "file:seek('set')\n"
                  "local _, lives = file:read('*a'):gsub('\\n', '')\n"
                  "file:close()\n"
                  "if lives <= " +
                  std::to_string(lives) + " then return " +
                  std::to_string(status) + " end");
}

// --- Records of the log ----------------------------------------------------

// All that the service said, in order: level, component and text. Traces are
// left out, the starts of workers as in CService::Records(), and the run time
// at the end of kExiting.
inline std::vector<std::string> Said(const CService& service)
{
    const std::string report = "exiting. Run time was ";
    std::vector<std::string> said;
    for (std::string record : service.Records())
    {
        const std::size_t at = record.find(report);
        if (at != std::string::npos)
            record.resize(at + report.size());
        if (record.rfind("TRACE", 0) != 0)
            said.push_back(record);
    }
    return said;
}

inline const std::string kStarting = "INFO kza: KZA 12.0.0.2932 starting.";
inline const std::string kUp = "MESSAGE kza: kz_agent is up";
inline const std::string kWorkerRuns = "MESSAGE kza: worker runs";
inline const std::string kExiting =
    "INFO kza: KZA 12.0.0.2932 exiting. Run time was ";

inline const std::string kInterrupted =
    "WARNING kza: Waiting for child process interrupted - Try again";

// A worker takes the stop request.
inline const std::string kCaught = "WARNING kza: sigwait(): caught signal 15";

// The watchdog's record of a worker that ended by itself.
inline std::string Exited(int status)
{
    return "INFO kza: Child process exited with status " +
           std::to_string(status << 8) + " (exit " + std::to_string(status) +
           ")";
}

inline std::string ServiceEnds(int status)
{
    return "ERROR kza: The service ends with status " + std::to_string(status);
}

inline std::string Delaying(int ms, int count)
{
    return "INFO kza: Delaying " + std::to_string(ms) + "ms before restart " +
           std::to_string(count);
}

} // namespace TestSupport
