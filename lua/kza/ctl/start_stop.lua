-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl start, stop and restart.

local complain = require("kza.ctl.complain")
local fail = require("kza.ctl.fail")
local options = require("kza.ctl.options")
local place = require("kza.ctl.place")
local service = require("kza.ctl.service")
local show = require("kza.ctl.show")
local supervise = require("kza.ctl.supervise")

-- The state, and the place where the agent works when it does so elsewhere.
local function look(context)
    local where = context.where
    local state, message = service.look(where)
    if not state then
        fail("%s", message)
    end
    if state.elsewhere then
        complain(service.note(where, state))
        context.where = place.moved(where, state.elsewhere)
    end
    return state
end

local function start(context)
    local state = look(context)
    local where = context.where
    if state.state == "running" or state.state == "starting" then
        show.outcome(context, "running", ("'%s' is running already (%d)")
            :format(where.name, state.watchdog.pid))
        return 0
    end
    if state.state == "orphan" then
        fail("a worker of '%s' runs without its watchdog (%d): stop it first",
            where.name, state.worker.pid)
    end
    if state.state == "stopping" then
        fail("'%s' has not ended yet (%d)", where.name, state.watchdog.pid)
    end
    local up, reason =
        supervise.start(where, context.args.option, context.args.timeout)
    if not up then
        fail("'%s' did not start: %s", where.name, reason)
    end
    show.outcome(context, "running", ("'%s' is up"):format(where.name))
    return 0
end

local function kill(context)
    local where = context.where
    local ended, message = supervise.kill(where)
    if not ended then
        fail("'%s' could not be ended: %s", where.name, message)
    end
    show.outcome(context, "stopped",
        ("'%s' was ended by force"):format(where.name))
    return 0
end

local function stop(context)
    local state = look(context)
    local where = context.where
    if not state.watchdog and not state.worker then
        show.outcome(context, "stopped",
            ("'%s' is stopped already"):format(where.name))
        return 0
    end
    local stopped, message = supervise.stop(where, context.args.timeout)
    if stopped then
        show.outcome(context, "stopped",
            ("'%s' is stopped"):format(where.name))
        return 0
    end
    if stopped == nil then
        fail("'%s' could not be asked to stop: %s", where.name, message)
    end
    if context.args.kill then
        return kill(context)
    end
    fail("'%s' has not stopped: 'main' has not returned since it was asked, %s",
        where.name, supervise.asked_since(where)
            or ("more than %g s ago"):format(context.args.timeout))
end

local function restart(context)
    local state = look(context)
    local process = state.watchdog or state.worker
    if #context.args.option == 0 and process and #process.words > 0 then
        context.args.option = options.again(process)
    end
    local status = stop(context)
    if status ~= 0 then
        return status
    end
    context.args.timeout = 10
    return start(context)
end

local function seconds(text)
    local number = tonumber(text)
    if not number or number < 0 or number ~= number then
        return nil, "'" .. text .. "' is no time in seconds"
    end
    return number
end

local function define_start(command)
    command:option("--timeout", "how long to wait until it is up")
        :argname("S"):default("10"):convert(seconds)
    command:argument("option", "options of kz_agent, after --"):args("*")
    command:usage("Usage: kzctl start [--timeout S] [-- OPTION...]")
end

local function define_stop(command)
    command:option("--timeout", "how long to wait until it has ended")
        :argname("S"):default("30"):convert(seconds)
    command:flag("--kill", "end it by force when it has not ended by then")
end

return {
    {
        name = "start",
        summary = "starts it in the background",
        description = [[
Starts the service with these options of kz_agent and waits until the
application is up, which is when its 'init' has returned. Ends with 1, and why,
when it does not come up, and beside a worker that has lost its watchdog. One
that is running already is fine.]],
        define = define_start,
        json = { "name", "state" },
        run = start,
    },
    {
        name = "stop",
        summary = "stops it, and waits until it has ended",
        description = [[
Asks the service to stop and waits until watchdog and worker have ended. While
it waits before a restart it is asked twice, as it has to be. A worker without
a watchdog is stopped too. When the time is up the command ends with 1; with
--kill it then ends both processes by force and removes the pid file.]],
        define = define_stop,
        json = { "name", "state" },
        run = stop,
    },
    {
        name = "restart",
        summary = "stops and starts it",
        description = [[
Stops the service as 'stop' does, and starts it as 'start' does: with the
options behind '--', else with those that it had.]],
        define = function(command)
            define_stop(command)
            command:argument("option", "options of kz_agent, after --")
                :args("*")
            command:usage("Usage: kzctl restart [--timeout S] [--kill] "
                .. "[-- OPTION...]")
        end,
        json = { "name", "state" },
        run = restart,
    },
}
