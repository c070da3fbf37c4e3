-- SPDX-License-Identifier: Apache-2.0
--
-- An example agent: it watches the host's vitals.
--
-- At an interval it takes a sample of load, memory, disks and uptime, writes
-- it to the log and prints it as one line. `./dev run` starts it.
--
-- The agent loads the module named after the application, here "kz_agent", and
-- calls its functions `init`, `main` and `shutdown` in turn, each without
-- arguments. A function that returns nothing or 0 was successful; any other
-- number ends the run and becomes the exit status. All of it runs on one
-- thread; nothing here needs a lock.
--
-- `dom` is the domain: the store of named values that the agent, its
-- configuration and its components share. These are the ones used here:
--
--     vitals.interval      milliseconds between two heartbeats; set it with
--                          --domain_var vitals.interval=5000
--     kza.HeartbeatNow     whoever sets it asks for a heartbeat at once

local probe = require("vitals.probe")
local report = require("vitals.report")

local DEFAULT_INTERVAL = 10000
local SHORTEST_INTERVAL = 100
local LONGEST_INTERVAL = 24 * 60 * 60 * 1000

local agent = {}

local heartbeats = 0

-- Read anew each time, so that a change in the domain takes effect while the
-- agent runs. A value from the command line is a string, hence tonumber.
local function interval()
    local wanted = tonumber(dom:Get("vitals.interval"))
    if not wanted then
        return DEFAULT_INTERVAL
    end
    wanted = math.max(wanted, SHORTEST_INTERVAL)
    return math.floor(math.min(wanted, LONGEST_INTERVAL))
end

local function heartbeat()
    heartbeats = heartbeats + 1
    local line = report.line(probe.sample())
    dom:Log("info", "vitals: " .. line)
    print(os.date("%H:%M:%S") .. "  " .. line)

    -- Standard output is buffered when it is not a terminal; whoever follows
    -- it through a pipe wants each line when it is made.
    io.stdout:flush()
end

--- Called once, first. The place to read settings and to refuse to start.
function agent.init()
    local given = dom:Get("vitals.interval")
    if given ~= nil and not tonumber(given) then
        dom:Log("warning", ("vitals.interval is '%s', not a number; using %d")
            :format(tostring(given), DEFAULT_INTERVAL))
    end
    dom:Log("message", ("vitals: watching, every %d ms"):format(interval()))
end

--- The work. In the foreground it goes on until the user presses Ctrl-C, which
--- ends the process there and then. In the background the service is stopped
--- in order: every wait is cut short, `main` returns, `shutdown` follows.
function agent.main()
    repeat
        heartbeat()

        -- Sleeps until the time is up or somebody asks for a heartbeat by
        -- setting the key. Both lead to the next one. The key is left as it
        -- is: to set it here, even to false, would be one more request.
        dom:Wait("kza.HeartbeatNow", interval())

        -- A sleep of no time only asks: false when this thread is to end.
    until not dom:Sleep(0)
end

--- Called last, after a `main` that was successful.
function agent.shutdown()
    dom:Log("message", ("vitals: stopped after %d heartbeats")
        :format(heartbeats))
end

return agent
