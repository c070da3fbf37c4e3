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
local options = require("kza.ctl.options")
local records = require("kza.ctl.records")

local service = {}

-- Starts within this many seconds count towards the watchdog's limit.
local PERIOD = 512

-- The search for starts ends after this many bytes, in a log that grows fast.
local REACH = { bytes = 64 * 1024 * 1024 }

-- The framework names an application after its program, without an extension.
local function name_of(process, values)
    local program = process.words[1]:match("([^/]*)$")
    return values.appname or program:match("^(.+)%.[^.]*$") or program
end

local function is_background_of(where, process)
    local values = options.values(options.of_process(process))
    return values.background and name_of(process, values) == where.name
end

-- Whether the process is an agent in the background under the service's name. A
-- fact that the system does not give counts as fitting.
local function has_name(where, process)
    return process.state ~= "Z"
        and (#process.words == 0 or is_background_of(where, process))
end

-- The service's processes by their ids: those that work in a directory, or in
-- any directory without the argument.
local function processes_in(where, directory)
    local found = {}
    local executable = host.real_path(where.agent) or where.agent
    for _, pid in ipairs(host.processes(executable, directory)) do
        local process = host.process(pid)
        if process and has_name(where, process) then
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

-- Whether another user's process may be the agent. The system does not tell
-- which program it runs, only its name.
local function is_agent(where, process)
    return process.executable == nil and process.name == "kz_agent"
        and has_name(where, process)
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
    end, REACH)
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

-- Finds out about a process that the pid file names and that does not work in
-- the expected directory.
local function look_further(where, result)
    local named = host.process(result.pid)
    if not named or named.state == "Z" then
        return
    end
    if processes_in(where)[result.pid] then
        result.watchdog = named
        result.elsewhere = named.directory
    elseif is_agent(where, named) then
        result.watchdog = named
    else
        result.other = named
    end
end

--- The present state of a service.
---@class kza.ctl.State
---@field state "running"|"starting"|"stopping"|"stopped"|"stale"|"orphan"
---@field watchdog? kza.host.Process
---@field worker? kza.host.Process
---@field restarts? integer       In the last 512 seconds, if it has a watchdog.
---@field next_start_ms? integer  While it is starting, if the log tells.
---@field elsewhere? string       Its directory when it is not the expected one.
---@field pid? integer            From the pid file.
---@field other? kza.host.Process The process of that id when it is no agent.

--- Determines the state of a service.
---@param where kza.ctl.Place
---@return kza.ctl.State? state  nil when the pid file cannot be read.
---@return string? message
function service.look(where)
    local pid, message = read_pid_file(where.pid_file)
    if message then
        return nil, message
    end
    local processes = processes_in(where, where.work)
    local result = { pid = pid }
    if processes[pid] then
        result.watchdog = processes[pid]
    elseif pid then
        look_further(where, result)
    end
    local watchdog, orphan = sort_out(where, processes)
    result.watchdog = result.watchdog or watchdog
    result.worker = result.watchdog and child_of(processes, result.watchdog)
        or orphan
    result.state = describe(where, result, pid)
    return result
end

--- A note for an operator who expects the service in another directory; nil
--- when it works in the expected one.
---@param where kza.ctl.Place
---@param state kza.ctl.State
---@return string?
function service.note(where, state)
    return state.elsewhere
        and ("'%s' works in '%s', not in '%s': see --workdir"):format(
            where.name, state.elsewhere, where.work)
end

return service
