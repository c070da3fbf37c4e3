// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the watchdog share: workers that end as they are told, and
// what the log shows of it.

#pragma once

#include "support/Service.h"

#include <string>
#include <vector>

namespace TestSupport
{

inline constexpr char kRuns[] = "worker runs";

// A worker that says that it runs and then does what the Lua code says.
inline std::string Worker(const std::string& code)
{
    return "local mainloop = require('mainloop')\n"
           "return { main = function()\n"
           "  dom:Log('message', 'worker runs')\n"
           "  mainloop.wait()\n" +
           code + "\nend }\n";
}

inline std::string Ends(int status)
{
    return Worker("return " + std::to_string(status));
}

// Ends with the status once it is told to.
inline std::string EndsWhenTold(int status)
{
    return Worker("while not io.open('told') do dom:Sleep(1) end return " +
                  std::to_string(status));
}

inline void Tell(const CService& service)
{
    WriteFile(service.Host().Work() + "/told", "");
}

// Ends with the status in its first lives and stays then. Each life adds the
// host's uptime in seconds as a line of the file `lives`.
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

// What the service said, without what the application traced and the run time.
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

using Lines = std::vector<std::string>;

inline const std::string kStarting = "INFO kza: KZA 12.0.0.2932 starting.";
inline const std::string kUp = "MESSAGE kza: kz_agent is up";
inline const std::string kWorkerRuns = "MESSAGE kza: worker runs";
inline const std::string kExiting =
    "INFO kza: KZA 12.0.0.2932 exiting. Run time was ";

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
