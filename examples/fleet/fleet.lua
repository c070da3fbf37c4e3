-- SPDX-License-Identifier: Apache-2.0
--
-- An agent of a fleet: what it has to report reaches a server that all hosts
-- share, and settings for all hosts or this one come back. The server is Redis,
-- one or a cluster; docs/fleet.md tells the whole story.
--
--     kza:events:<host>    the agent's events, each once and in order
--     kza:vitals:<host>    the host's vitals, the last of them
--     kza:settings         settings for all hosts
--     kza:settings:<host>  settings for this one
--
-- It is an application of its own. Another one may require it and call its
-- `init`, `main` and `shutdown`, or call `step` in a loop of its own.
--
-- There are three duties, each with its own time. One that fails waits, longer
-- each time; what it is about waits in the agent's database, on the server, or
-- not at all. kza.HeartbeatNow makes all of them due at once.

local backoff = require("fleet.backoff")
local config = require("fleet.config")
local events = require("fleet.events")
local host = require("kza.host")
local probe = require("vitals.probe")
local servers = require("fleet.servers")
local settings = require("fleet.settings")
local vitals = require("fleet.vitals")

local fleet = {}

-- What serves the settings as they were when it was made: connections, and
-- where in the streams we are. Made anew when they lead elsewhere.
local link

local is_stopped = false

-- A stop request is told once to what waits; so it is remembered here.
local function stopping()
    is_stopped = is_stopped or not dom:Sleep(0)
    return is_stopped
end

local function read_events(after, limit)
    local found, message = dom:AgentEvents(after, limit)
    return found, message and "the events cannot be read: " .. message
end

local function open_link(now)
    local name = now.host
    local path = assert(dom:GetPluginWorkdir("fleet")) .. "/settings.json"
    local made = {
        connection = now.connection,
        servers = servers.new(now, stopping),
        events = events.new("kza:events:" .. name, read_events),
        settings = settings.new(path, name),
    }
    made.settings:recall()
    return made
end

-- The duties ------------------------------------------------------------------

-- Each answers true when it is done, false when there is more to do at once,
-- nil and a message when it failed.

local function ship_events()
    local more, message = link.events:ship(link.servers)
    if more == nil then
        return nil, message
    end
    return not more
end

local function publish_vitals(now)
    return vitals.publish(link.servers, "kza:vitals:" .. now.host,
        now.vitals_length, probe.sample())
end

local function follow_settings(now)
    return link.settings:follow(link.servers, "kza:settings",
        "kza:settings:" .. now.host)
end

-- Events that an operator has to release are looked at with the vitals only.
local function events_interval(now)
    return link.events.held and now.vitals_interval or now.interval
end

local function vitals_interval(now)
    return now.vitals_interval
end

local duties = {
    { run = ship_events, interval = events_interval },
    { run = publish_vitals, interval = vitals_interval },
    { run = follow_settings, interval = vitals_interval },
}

local function reset_duties()
    for _, duty in ipairs(duties) do
        duty.due = 0       -- a time of host.clock()
        duty.failures = 0  -- in a row
        duty.trouble = nil -- why the last one failed
        duty.is_spread = false
    end
end

-- What goes wrong -----------------------------------------------------------

local function is_known(trouble)
    for _, duty in ipairs(duties) do
        if duty.trouble == trouble then
            return true
        end
    end
    return false
end

-- Says what is new about the trouble of a duty, once for all that have it.
local function note_trouble(duty, trouble)
    local before = duty.trouble
    if trouble == before then
        return
    end
    duty.trouble = nil
    if trouble and not is_known(trouble) then
        dom:Log("warning", "fleet: " .. trouble .. "; trying again")
    elseif not trouble and not is_known(before) then
        dom:Log("message", "fleet: no more trouble: " .. before)
    end
    duty.trouble = trouble
end

local function note_held(before)
    local held = link.events.held
    if held and held ~= before then
        dom:Log("error", "fleet: events are held back: " .. held)
    elseif before and not held then
        dom:Log("message", "fleet: events are shipped again")
    end
end

-- Time ------------------------------------------------------------------------

-- Seconds until a duty is due again after it has been done. What every host
-- does at an interval is spread once over that interval: hosts that start
-- together must not come together ever after.
local function pause_after(duty, now)
    local interval = duty.interval(now) / 1000
    if duty.interval == vitals_interval and not duty.is_spread then
        duty.is_spread = true
        return backoff.part_of(interval)
    end
    return interval
end

local function perform(duty, now)
    local held = link.events.held
    local done, message = duty.run(now)
    if is_stopped then
        return
    end
    note_trouble(duty, message)
    note_held(held)
    duty.failures = done == nil and duty.failures + 1 or 0
    local pause = done == nil and backoff.seconds(duty.failures)
        or done and pause_after(duty, now) or 0
    duty.due = host.clock() + pause
end

local function first_due()
    local first = math.huge
    for _, duty in ipairs(duties) do
        first = math.min(first, duty.due)
    end
    return first
end

-- The application ------------------------------------------------------------

--- Does what is due, or everything when `at_once` is true. Answers the
--- milliseconds until something is due again.
function fleet.step(at_once)
    local now = config.read()
    if not link or link.connection ~= now.connection then
        fleet.shutdown()
        link = open_link(now)
        reset_duties()
    end
    if at_once then
        link.servers:try_again()
    end
    for _, duty in ipairs(duties) do
        if (at_once or duty.due <= host.clock()) and not stopping() then
            perform(duty, now)
        end
    end
    return math.max(0, math.ceil((first_due() - host.clock()) * 1000))
end

--- Applies the settings of former runs, so that what is started after this
--- finds them, and says what is wrong with those of the fleet itself.
function fleet.init()
    is_stopped = false
    local now = config.read()
    link = open_link(now)
    reset_duties()
    for _, complaint in ipairs(config.complaints()) do
        dom:Log("warning", "fleet: " .. complaint)
    end
    now = config.read()
    dom:Log("message", ("fleet: this is '%s', reporting to %s")
        :format(now.host, table.concat(now.servers, ", ")))
end

function fleet.main()
    local asked = false
    repeat
        local pause = fleet.step(asked)
        asked = not stopping() and dom:Wait("kza.HeartbeatNow", pause)
    until stopping()
end

--- Closes the connections. What has not been shipped is shipped by the next
--- run.
function fleet.shutdown()
    if link then
        link.servers:close()
        link = nil
    end
end

return fleet
