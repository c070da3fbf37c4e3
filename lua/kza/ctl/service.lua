-- SPDX-License-Identifier: Apache-2.0
--
-- What a service does, as the pid file, the system and the log tell of it
-- together.
--
-- A service is a watchdog and its child, the worker. Both run the agent's
-- executable in the background, in the working directory; the watchdog has one
-- thread, a worker has more. The pid file names the watchdog until a stop is
-- asked for. Where the system does not tell what a process runs (see
-- host.processes), only the pid file and its process's children are known.

local files = require("kza.files")
local host = require("kza.host")
local records = require("kza.ctl.records")
local startup = require("kza.startup")

local service = {}

-- Starts within so many seconds count towards the watchdog's limit.
local PERIOD = 512

-- What the command line of a process says, by the long names of the options; a
-- switch is true. Of several values the last one counts.
local function options_of(process)
    local words = {}
    for i = 2, #process.words do
        words[i - 1] = process.words[i]
    end
    local found = {}
    for _, option in ipairs(startup.options(words) or {}) do
        found[option.name] = option.value or true
    end
    return found
end

-- The framework names an application after its program, without an extension.
local function name_of(process, options)
    local program = process.words[1]:match("([^/]*)$")
    return options.appname or program:match("^(.+)%.[^.]*$") or program
end

local function is_background_of(where, process)
    local options = options_of(process)
    return options.background and name_of(process, options) == where.name
end

-- Whether the process is one of the service: what the system does not tell
-- does not count against it.
local function is_of_service(where, process)
    return process.state ~= "Z"
        and (#process.words == 0 or is_background_of(where, process))
end

-- The service's processes by their ids.
local function processes_of(where)
    local found = {}
    local executable = host.real_path(where.agent) or where.agent
    for _, pid in ipairs(host.processes(executable, where.work)) do
        local process = host.process(pid)
        if process and is_of_service(where, process) then
            found[pid] = process
        end
    end
    return found
end

-- The number in a pid file: decimal, white space around it is fine. nil without
-- a message when there is none.
local function read_pid_file(path)
    local stat, message = host.stat(path, true)
    if not stat then
        if message:find("No such file", 1, true) then
            return nil
        end
        return nil, message
    end
    if stat.type ~= "file" then
        return nil
    end
    local text, reason = files.read(path)
    if not text then
        return nil, reason
    end
    local pid = tonumber(text:match("^%s*(%d+)%s*$"))
    return pid and pid > 0 and pid or nil
end

-- The process that the pid file names, when it is an agent as far as one can
-- tell.
local function named_process(processes, pid)
    local process = pid and (processes[pid] or host.process(pid))
    if not process or process.state == "Z" then
        return nil
    end
    local told = process.executable ~= nil
    if processes[pid] or (not told and process.name == "kz_agent") then
        return process
    end
end

local function child_of(processes, watchdog)
    for _, pid in ipairs(host.children(watchdog.pid)) do
        local child = processes[pid] or host.process(pid)
        if child and child.state ~= "Z" and child.name == watchdog.name then
            return child
        end
    end
end

-- How often a watchdog has started a worker within the period, and the delay
-- that it has logged since.
local function starts_of(where, watchdog)
    local starts, delay = 0, nil
    local now = os.time()
    records.backwards(where.log, function(record)
        local time = records.seconds(record.stamp)
        if not time or now - time >= PERIOD then
            return false
        end
        if record.pid == watchdog.pid then
            if record.text:find("^Worker %d+ started$") then
                starts = starts + 1
            end
            local ms = record.text:match(
                "^Delaying (%d+)ms before restart %d+$")
            if ms and starts == 0 and not delay then
                delay = { time = time, ms = tonumber(ms) }
            end
        end
    end)
    return starts, delay
end

-- A watchdog that waits before a restart has no worker, but the log has the
-- start of the last one. Its threads tell less: not every system counts them,
-- and libraries may start some.
local function is_watchdog(where, processes, process)
    return process.threads == 1 or child_of(processes, process) ~= nil
        or starts_of(where, process) > 0
end

-- Of processes without a parent among them, one is the watchdog and another a
-- worker that has lost its own.
local function sort_out(where, processes)
    local watchdog, orphan
    for _, process in pairs(processes) do
        if not processes[process.parent] then
            if is_watchdog(where, processes, process) then
                watchdog = process
            else
                orphan = process
            end
        end
    end
    return watchdog, orphan
end

local function describe(where, result, pid)
    local watchdog = result.watchdog
    if not watchdog then
        return result.worker and "orphan" or pid and "stale" or "stopped"
    end
    local starts, delay = starts_of(where, watchdog)
    -- The service's first start is no restart.
    local first_counts = os.time() - watchdog.started < PERIOD
    result.restarts = math.max(starts - (first_counts and 1 or 0), 0)
    if watchdog.pid ~= pid then
        return "stopping"
    end
    if result.worker then
        return "running"
    end
    result.next_start_ms = delay
        and math.max(delay.ms - (os.time() - delay.time) * 1000, 0)
    return "starting"
end

--- What a service does at present.
---@class kza.ctl.State
---@field state "running"|"starting"|"stopping"|"stopped"|"stale"|"orphan"
---@field watchdog? kza.host.Process
---@field worker? kza.host.Process
---@field restarts? integer       In the last 512 seconds, if it has a watchdog.
---@field next_start_ms? integer  While it is starting, if the log tells.

--- Looks at a service.
---@param where kza.ctl.Place
---@return kza.ctl.State? state  nil when the pid file cannot be read.
---@return string? message
function service.look(where)
    local pid, message = read_pid_file(where.pid_file)
    if message then
        return nil, message
    end
    local processes = processes_of(where)
    local watchdog, orphan = sort_out(where, processes)
    local result = {}
    result.watchdog = named_process(processes, pid) or watchdog
    result.worker = result.watchdog and child_of(processes, result.watchdog)
        or orphan
    result.state = describe(where, result, pid)
    return result
end

return service
