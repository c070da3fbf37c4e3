-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl status: the state of a service and further facts for an operator.

local complain = require("kza.ctl.complain")
local host = require("kza.host")
local records = require("kza.ctl.records")
local service = require("kza.ctl.service")
local show = require("kza.ctl.show")

-- The exit statuses of init scripts for the states.
local STATUSES = {
    running = 0, starting = 0, stopping = 0, stale = 1, orphan = 1, stopped = 3,
}
local UNREADABLE = 4

local COLOURS = {
    running = "green", starting = "yellow", stopping = "yellow",
    stale = "red", orphan = "red",
}

local MEANINGS = {
    starting = "waits before it starts the worker again",
    stopping = "was asked to stop",
    orphan = "its worker runs without a watchdog",
}

local ORDER = {
    "name", "state", "watchdog", "worker", "since", "restarts",
    "next_start_ms", "rss_kib", "cpu_s", "version", "last_error", "last_dump",
    "pending_packages",
}

-- The search for an error stops after this many bytes: a log may be very long.
local REACH = { bytes = 4 * 1024 * 1024 }

local function last_error(where)
    local found
    records.backwards(where.log, function(record)
        if record.level == "ERROR"
            and not record.text:find("^The service ends with status ") then
            found = record.line
        end
        return found == nil
    end, REACH)
    return found
end

local function pending_packages(where)
    local names = {}
    for _, name in ipairs(host.list(where.bin) or {}) do
        if name:find("^[^.].*%.kz[pu]$") then
            names[#names + 1] = name
        end
    end
    return show.array(names)
end

local function of_both(state, field)
    return {
        watchdog = state.watchdog and state.watchdog[field] or show.unknown,
        worker = state.worker and state.worker[field] or show.unknown,
    }
end

-- A running agent has the version of this program unless its file was replaced.
local function version_of(where, state)
    local process = state.watchdog or state.worker
    if process and process.executable == host.real_path(where.agent) then
        return dom:Get("app.version")
    end
end

local function collect(where, state)
    local process = state.watchdog or state.worker
    return {
        name = where.name,
        state = state.state,
        watchdog = state.watchdog and state.watchdog.pid,
        worker = state.worker and state.worker.pid,
        since = process and records.iso(process.started),
        restarts = state.restarts,
        next_start_ms = state.next_start_ms,
        rss_kib = of_both(state, "rss_kib"),
        cpu_s = of_both(state, "cpu_s"),
        version = version_of(where, state),
        last_error = last_error(where),
        last_dump = host.stat(where.dump) and where.dump or nil,
        pending_packages = pending_packages(where),
    }
end

local function usage_of(process)
    if not process then
        return nil
    end
    return ("%d, %s%.1f s CPU"):format(process.pid,
        process.rss_kib and ("%.1f MiB, "):format(process.rss_kib / 1024) or "",
        process.cpu_s)
end

-- What stands in the pid file that was left.
local function meaning_of(state)
    if state.state ~= "stale" then
        return MEANINGS[state.state]
    end
    return state.other and ("its pid file names process %d, which runs '%s'")
        :format(state.pid, state.other.executable or state.other.name)
        or ("its pid file names process %d, which is gone"):format(state.pid)
end

local function print_facts(found, state)
    local meaning = meaning_of(state)
    show.fact("name", found.name)
    show.fact("state", found.state .. (meaning and ": " .. meaning or ""),
        COLOURS[found.state])
    if found.next_start_ms then
        show.fact("next", ("in %.0f s"):format(found.next_start_ms / 1000))
    end
    show.fact("watchdog", usage_of(state.watchdog))
    show.fact("worker", usage_of(state.worker))
    show.fact("since", found.since)
    show.fact("restarts", found.restarts)
    show.fact("version", found.version)
    show.fact("error", found.last_error)
    show.fact("dump", found.last_dump)
    if #found.pending_packages > 0 then
        show.fact("packages", "waiting: "
            .. table.concat(found.pending_packages, ", "))
    end
end

local function status(context)
    local where = context.where
    local state, message = service.look(where)
    if not state then
        error({ message = message, status = UNREADABLE }, 0)
    end
    local note = service.note(where, state)
    if note then
        complain(note)
    end
    local found = collect(where, state)
    if context.json then
        show.json(found, ORDER)
    else
        print_facts(found, state)
    end
    return STATUSES[state.state]
end

return {
    {
        name = "status",
        summary = "what the agent does",
        description = [[
Shows the state of the service, its processes, how often its worker was started
again in the last 512 seconds, the last error in the log, the last crash dump
and the packages that wait to be applied.

  running   a watchdog and its worker
  starting  the watchdog waits before it starts the worker again
  stopping  it was asked to stop and has not ended yet
  stopped   no process of it
  stale     no process of it, but a pid file is left
  orphan    a worker whose watchdog is gone
]],
        statuses = {
            { "0", "it is running, starting or stopping" },
            { "1", "it is stale or an orphan" },
            { "2", "wrong usage" },
            { "3", "it is stopped" },
            { "4", "the pid file cannot be read" },
        },
        json = ORDER,
        run = status,
    },
}
