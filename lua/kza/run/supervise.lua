-- SPDX-License-Identifier: Apache-2.0
--
-- Runs a program in the foreground to its end, once or after each change of
-- the project's files.

local changes = require("kza.run.changes")
local complain = require("kza.run.complain")
local fail = require("kza.ctl.fail")
local host = require("kza.host")

local supervise = {}

-- How long a program that was asked to end may take.
local PATIENCE = 5

-- After Ctrl-C, SIGTERM and SIGHUP.
local INTERRUPTED = { interrupted = true, status = 0 }

--- How a program ended.
---@class kza.run.End
---@field status? integer      Exit status; none when a signal ended it.
---@field signal? integer      The signal that ended it.
---@field interrupted? boolean The user wanted it.

local function start(command)
    local pid, message = host.start(command)
    if not pid then
        fail("%s", message)
    end
    return pid
end

-- Waits for the end; by force when it does not come in time, or at a further
-- signal.
local function see_to_end(pid, seconds)
    while host.await(seconds, pid) ~= "ended" do
        host.kill(pid, "KILL")
        seconds = math.huge
    end
end

-- Ends a program as Ctrl-C ends it.
local function interrupt(pid)
    host.kill(pid, "INT")
    see_to_end(pid, PATIENCE)
end

-- Passes a signal on to the program. After Ctrl-C the terminal has done that,
-- and a program that handles it takes the time that it needs.
local function pass_on(pid, signal, from_system)
    if signal == "INT" and from_system then
        see_to_end(pid, math.huge)
    else
        interrupt(pid)
    end
end

--- Runs a program to its end.
---@param command string[]
---@param seconds? number  After so many it is ended as by the user.
---@return kza.run.End
function supervise.run(command, seconds)
    host.take_signals()
    local pid = start(command)
    local event, value, more = host.await(seconds or math.huge, pid)
    if event == "ended" then
        return { status = value, signal = more }
    elseif event == "signal" then
        pass_on(pid, value, more)
    else
        interrupt(pid)
    end
    return INTERRUPTED
end

--- The status that stands for the end of an application.
---@param ended kza.run.End
---@return integer
function supervise.status(ended)
    return ended.status or 128 + ended.signal
end

-- Starts it, when the project's files allow that.
local function try_to_start(prepare)
    local ok, result = pcall(function() return start(prepare()) end)
    if ok then
        return result
    end
    complain("%s", type(result) == "table" and result.message or result)
end

local function describe_end(ended)
    if ended.signal then
        return ("ended by signal %d"):format(ended.signal)
    elseif ended.status ~= 0 then
        return ("ended with status %d"):format(ended.status)
    end
    return "ended"
end

-- Runs one program until files change. Answers false when the user ended it.
local function run_until_change(pid, watch, describe)
    while true do
        local event, value, more = watch:await(pid)
        if event == "signal" then
            if pid then
                pass_on(pid, value, more)
            end
            return false
        elseif event == "changed" then
            if pid then
                interrupt(pid)
            end
            complain("%s changed", value)
            return true
        end
        pid = nil
        complain("%s; waiting for a change",
            describe({ status = value, signal = more }))
    end
end

--- Runs a program, and again after each change, until the user ends it.
---@param project kza.run.Project
---@param prepare fun(): string[]  Answers with the command; may fail.
---@param describe? fun(ended: kza.run.End): string  What is said of an end.
function supervise.watch(project, prepare, describe)
    host.take_signals()
    local watch = changes.watch(project)
    repeat
        local pid = try_to_start(prepare)
        if not pid then
            complain("waiting for a change")
        end
    until not run_until_change(pid, watch, describe or describe_end)
end

return supervise
