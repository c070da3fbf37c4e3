// SPDX-License-Identifier: Apache-2.0

#include "e2e/fleet/FleetAgent.h"

#include <gtest/gtest.h>

#include <sstream>

namespace TestSupport
{

namespace
{

// Some events at a time, so that writing and shipping go side by side.
constexpr char kReporter[] = R"(
local fleet = require("fleet")
local reporter = { init = fleet.init, shutdown = fleet.shutdown }

local function last_id()
    local id = 0
    repeat
        local found = assert(dom:AgentEvents(id, 1000))
        id = #found > 0 and found[#found].id or id
    until #found == 0
    return id
end

local function wanted()
    local file = io.open("wanted")
    local count = file and file:read("*n") or 0
    if file then
        file:close()
    end
    return count
end

function reporter.main()
    local id, asked = last_id(), false
    repeat
        local most = math.min(wanted(), id + 20)
        while id < most do
            id = dom:AgentEventWrite({ text = "event " .. id + 1,
                number = id % 7, severity = 5 })
        end
        local pause = fleet.step(asked)
        asked = dom:Wait("kza.HeartbeatNow",
            id < wanted() and 0 or math.min(pause, 20))
    until not dom:Sleep(0)
end

return reporter
)";

constexpr char kListScript[] = R"(
local lines = {}
for i, entry in ipairs(redis.call("XRANGE", KEYS[1], "-", "+")) do
    lines[i] = entry[1] .. " " .. entry[2][10]
end
return table.concat(lines, "\n"))";

} // namespace

CFleetAgent::CFleetAgent(const std::string& host,
                         const std::string& servers,
                         std::map<std::string, std::string> settings)
    : m_settings(std::move(settings))
{
    m_settings.insert({{"fleet.host", host},
                       {"fleet.servers", servers},
                       {"fleet.interval", "20"},
                       {"fleet.vitals.interval", "200"},
                       {"control.socket", "1"}});
    m_service.SetModule(kReporter);
    Set("fleet.host", host);
}

void CFleetAgent::Set(const std::string& name, const std::string& value)
{
    m_settings[name] = value;
    std::string text = "[domain]\n";
    for (const auto& setting : m_settings)
        text += setting.first + "=" + setting.second + "\n";
    WriteFile(m_service.Host().Work() + "/kz_agent.ini", text);
}

void CFleetAgent::Want(int events) const
{
    WriteFile(m_service.Host().Work() + "/wanted", std::to_string(events));
}

bool CFleetAgent::Start() const
{
    CServiceOptions options;
    options.arguments = {"--lua_path", kFleetPath};
    const int before = CountOf(m_service.Log(), "reporter is up");
    return m_service.Start(options).status == 0 &&
           m_service.WaitForLog("reporter is up", before + 1);
}

bool CFleetAgent::HasWritten(int events) const
{
    const std::string last = "event " + std::to_string(events) + "\"";
    return WaitUntil(
        [&]
        {
            return Ctl({"--json", "events", "-n", "1"}).out.find(last) !=
                   std::string::npos;
        });
}

void CFleetAgent::Heartbeat() const
{
    EXPECT_EQ(Ctl({"heartbeat"}).status, 0);
}

CProcessResult CFleetAgent::Ctl(std::vector<std::string> words) const
{
    words.insert(words.begin(),
                 {KZA_STAGE_DIR "/kzctl", "--appname", m_service.Name(),
                  "--workdir", m_service.Host().Work()});
    return Run(words);
}

std::vector<std::string> EventsOn(const CRedisServer& server,
                                  const std::string& host)
{
    std::istringstream text(
        server.Cli({"eval", kListScript, "1", "kza:events:" + host}));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

std::vector<std::string> EventLines(int first, int last)
{
    std::vector<std::string> lines;
    for (int id = first; id <= last; ++id)
    {
        const std::string number = std::to_string(id);
        lines.push_back(number + "-0 event " + number);
    }
    return lines;
}

bool HasEvents(const CRedisServer& server,
               const std::string& host,
               int first,
               int last)
{
    const std::vector<std::string> expected = EventLines(first, last);
    if (WaitUntil([&] { return EventsOn(server, host) == expected; }))
        return true;
    const std::vector<std::string> found = EventsOn(server, host);
    fprintf(stderr, "%zu events of %s, last: %s\n", found.size(), host.c_str(),
            found.empty() ? "none" : found.back().c_str());
    return false;
}

} // namespace TestSupport
