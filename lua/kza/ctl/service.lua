-- SPDX-License-Identifier: Apache-2.0
--
-- The state of a service, from the pid file, the system and the log together.
--
-- A service is a watchdog and its child, the worker. Both run the agent's
-- executable in background mode, in the working directory; the watchdog has one
-- thread, a worker has more. The pid file names the watchdog until a stop is
-- requested. Where the system does not give the executable of a process (see
-- host.processes), only the process in the pid file and its children are known.

local files = require("kza.files")
local host = require("kza.host")
local records = require("kza.ctl.records")
local startup = require("kza.startup")

local service = {}

-- Starts within this many seconds count towards the watchdog's limit.
local PERIOD = 512

-- The options in the command line of a process, by their long names; a switch
-- is true. Of several values the last one counts.
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

-- Whether the process belongs to the service. A fact that the system does not
-- give counts as fitting.
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

-- The process that the pid file names, when it may be an agent by all known
-- facts.
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

-- The number of times that a watchdog has started a worker within the period,
-- and the delay that it has logged since.
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

-- Whether a process is a watchdog: it has one thread, or a child, or the log
-- has its start of a worker. The threads alone do not decide: not every system
-- gives their number, and libraries may start some. A watchdog that waits
-- before a restart has no child.
local function is_watchdog(where, processes, process)
    return process.threads == 1 or child_of(processes, process) ~= nil
        or starts_of(where, process) > 0
end

-- Sorts the processes. One whose parent is not among them is the watchdog, or a
-- worker whose watchdog has ended.
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

--- The present state of a service.
---@class kza.ctl.State
---@field state "running"|"starting"|"stopping"|"stopped"|"stale"|"orphan"
---@field watchdog? kza.host.Process
---@field worker? kza.host.Process
---@field restarts? integer       In the last 512 seconds, if it has a watchdog.
---@field next_start_ms? integer  While it is starting, if the log has it.

--- Determines the state of a service.
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
