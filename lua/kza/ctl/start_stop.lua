-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl start, stop and restart.

local fail = require("kza.ctl.fail")
local service = require("kza.ctl.service")
local show = require("kza.ctl.show")
local supervise = require("kza.ctl.supervise")

local function look(where)
    local state, message = service.look(where)
    if not state then
        fail("%s", message)
    end
    return state
end

local function start(context)
    local where = context.where
    local state = look(where)
    if state.state == "running" or state.state == "starting" then
        show.line(("'%s' is running already (%d)"):format(
            where.name, state.watchdog.pid))
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
    show.line(("'%s' is up"):format(where.name))
    return 0
end

local function kill(where)
    local ended, message = supervise.kill(where)
    if not ended then
        fail("'%s' could not be ended: %s", where.name, message)
    end
    show.line(("'%s' was ended by force"):format(where.name))
    return 0
end

local function stop(context)
    local where = context.where
    local state = look(where)
    if not state.watchdog and not state.worker then
        show.line(("'%s' is stopped already"):format(where.name))
        return 0
    end
    local stopped, message = supervise.stop(where, context.args.timeout)
    if stopped then
        show.line(("'%s' is stopped"):format(where.name))
        return 0
    end
    if stopped == nil then
        fail("'%s' could not be asked to stop: %s", where.name, message)
    end
    if context.args.kill then
        return kill(where)
    end
    fail("'%s' has not stopped: 'main' has not returned since it was asked, %s",
        where.name, supervise.asked_since(where)
            or ("more than %g s ago"):format(context.args.timeout))
end

local function restart(context)
    context.args.option = context.args.option or {}
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
        run = stop,
    },
    {
        name = "restart",
        summary = "stops and starts it",
        description = [[
Stops the service as 'stop' does, and starts it as 'start' does.]],
        define = function(command)
            define_stop(command)
            command:argument("option", "options of kz_agent, after --")
                :args("*")
        end,
        run = restart,
    },
}
