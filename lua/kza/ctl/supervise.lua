-- SPDX-License-Identifier: Apache-2.0
--
-- Starting and stopping a service, and waiting for the result.

local host = require("kza.host")
local records = require("kza.ctl.records")
local service = require("kza.ctl.service")

local supervise = {}

local LOOK_MS = 50

-- Calls `done` again and again until it returns a value; nil when the time is
-- up.
local function wait(seconds, done)
    local deadline = host.clock() + seconds
    while true do
        local result = done()
        if result ~= nil then
            return result
        end
        if host.clock() >= deadline then
            return nil
        end
        dom:Sleep(LOOK_MS)
    end
end

-- The first line of a record's text: a traceback follows it.
local function first_line(text)
    return (text:gsub("\\n.*$", ""))
end

-- The outcome of the start, according to the log since then: the application is
-- up, or the reason why the service ended.
local function outcome(where, follower, heard)
    for _, record in ipairs(follower:read()) do
        if record.level == "ERROR" then
            heard.reason = heard.reason or first_line(record.text)
        end
        if record.text == where.name .. " is up" then
            return { up = true }
        end
        if record.text:find("^The service ends with status ")
            or record.text:find(" present, exiting$") then
            return { reason = heard.reason or record.text }
        end
    end
    -- A service that has ended writes no further record.
    local state = service.look(where)
    if heard.seen and state and not state.watchdog then
        heard.gone = (heard.gone or 0) + 1
        if heard.gone > 2 then
            return { reason = heard.reason or "it has ended" }
        end
    end
    heard.seen = heard.seen or (state and state.watchdog ~= nil)
end

--- Starts a service with further options of the agent.
---@param where kza.ctl.Place
---@param options string[]
---@param seconds number  Longest wait until the application is up.
---@return boolean up
---@return string? reason  The reason when it is not.
function supervise.start(where, options, seconds)
    local words = { where.agent, "--background", "--appname", where.name,
        "--workdir", where.work }
    for _, option in ipairs(options) do
        words[#words + 1] = option
    end
    local follower = records.follow(where.log)
    local status, output = host.run(words)
    if status ~= 0 then
        for _, record in ipairs(follower:read()) do
            if record.level == "ERROR" then
                return false, first_line(record.text)
            end
        end
        output = output:match("^%s*(.-)%s*$")
        return false, output ~= "" and output
            or ("it ended with status %d"):format(status)
    end
    local heard = {}
    local result = wait(seconds, function()
        return outcome(where, follower, heard)
    end)
    if result then
        return result.up == true, result.reason
    end
    return false, ("'%s' is not up after %g s"):format(where.name, seconds)
end

local function is_gone(state)
    return not state.watchdog and not state.worker
end

-- A function that sends a stop request: once, and once more when the watchdog
-- had no worker at the first one. In that state the watchdog only notes the
-- request, and starts the next worker without passing it on; a second request
-- ends it.
local function asker()
    local asked, last, alone = 0, 0, false
    return function(state)
        local target = state.watchdog or state.worker
        alone = alone or (state.watchdog ~= nil and not state.worker)
        if asked == 0 or (alone and asked == 1
                and host.clock() - last > 0.2) then
            asked, last = asked + 1, host.clock()
            return host.kill(target.pid, "TERM")
        end
        return true
    end
end

--- Asks a service to stop and waits until watchdog and worker are gone.
---@param where kza.ctl.Place
---@param seconds number
---@return boolean? stopped  false when the service still runs after the time.
---@return string? message   The reason when no request could be sent.
function supervise.stop(where, seconds)
    local ask = asker()
    local message
    local stopped = wait(seconds, function()
        local state, reason = service.look(where)
        if not state then
            message = reason
            return false
        end
        if is_gone(state) then
            return true
        end
        local sent, why = ask(state)
        -- A process that has ended meanwhile is a success.
        if not sent and why ~= "No such process" then
            message = why
            return false
        end
    end)
    if message then
        return nil, message
    end
    return stopped == true
end

--- Ends a service at once, without `shutdown`.
---@param where kza.ctl.Place
---@return boolean? ended
---@return string? message
function supervise.kill(where)
    local message
    local ended = wait(5, function()
        local state, reason = service.look(where)
        if not state then
            message = reason
            return false
        end
        if is_gone(state) then
            return true
        end
        -- The watchdog is killed first, because it would start another worker.
        for _, process in ipairs({ state.watchdog or false,
            state.worker or false }) do
            if process then
                local sent, why = host.kill(process.pid, "KILL")
                if not sent and why ~= "No such process" then
                    message = why
                    return false
                end
            end
        end
    end)
    if not ended then
        return nil, message or "it does not end"
    end
    os.remove(where.pid_file)
    return true
end

--- The time of the last stop request, if the log has it.
---@param where kza.ctl.Place
---@return string? stamp  `YYYY-MM-DD HH:MM:SS`
function supervise.asked_since(where)
    local found
    records.backwards(where.log, function(record)
        if record.text:find("^Waiting for child process interrupted") then
            found = record.stamp
        end
        return not record.text:find("^Worker %d+ started$")
            and not record.text:find(" is up$")
    end)
    return found
end

return supervise
