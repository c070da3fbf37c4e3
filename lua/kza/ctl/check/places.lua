-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: directories, and the files that the agent keeps in them.

local agent = require("kza.ctl.agent")
local host = require("kza.host")
local settings = require("kza.ctl.settings")

local function is_missing(message)
    return message:find("No such file", 1, true) ~= nil
end

local function above(path)
    local directory = path:match("^(.*)/[^/]+/?$")
    return directory == "" and "/" or directory or "."
end

-- Checks a missing directory, which the agent makes with all directories above.
local function check_missing(report, path)
    local directory = above(path)
    while not host.stat(directory) and directory ~= above(directory) do
        directory = above(directory)
    end
    local writable, message = host.access(directory, "write")
    if writable then
        report:add("ok", "directory", "'%s' will be made", path)
    else
        report:add("error", "directory", "'%s' cannot be made: %s", path,
            message)
    end
end

-- Checks a directory that the agent writes to. Returns whether its content is
-- to be checked, too.
local function check_written(report, path)
    local stat, message = host.stat(path)
    if not stat and is_missing(message) then
        check_missing(report, path)
        return false
    elseif not stat or stat.type ~= "directory" then
        report:add("error", "directory", "'%s' is no directory%s", path,
            message and message:sub(#path + 1) or "")
        return false
    end
    local writable, why = host.access(path, "write")
    if not writable then
        report:add("error", "directory", "%s", why)
        return false
    end
    report:add("ok", "directory", "'%s'", path)
    return true
end

local function check_read(report, path, is_needed)
    local stat, message = host.stat(path)
    if stat and stat.type == "directory" then
        local readable, why = host.access(path, "read")
        report:add(readable and "ok" or "error", "directory",
            readable and "'%s'" or "%s", readable and path or why)
    elseif is_needed or stat or not is_missing(message) then
        report:add("error", "directory", "'%s' is no directory%s", path,
            message and message:sub(#path + 1) or "")
    end
end

-- Checks the directory of crash dumps: no dump is written through a link.
local function check_dumps(report, where)
    local stat = host.stat(where.dumps, true)
    if stat and stat.type == "link" then
        report:add("warning", "directory", "'%s' is a symbolic link: no crash "
            .. "dump will be written", where.dumps)
    elseif stat then
        check_written(report, where.dumps)
    end
end

local function check_log(report, where)
    if host.stat(where.log:match("^(.*)/"), true) then
        check_written(report, where.log:match("^(.*)/"))
    end
    local stat = host.stat(where.log)
    local writable, message = host.access(where.log, "write")
    if stat and stat.type == "file" and writable then
        report:add("ok", "log", "'%s'", where.log)
    elseif stat or not is_missing(message) then
        report:add("error", "log", "%s", writable
            and ("'%s' is no file"):format(where.log) or message)
    end
end

local function check_events(report, where)
    if not host.stat(where.events) then
        return -- the agent makes the database with its first event
    end
    local events, message = host.events(where.events, 0, 1)
    if events then
        report:add("ok", "events", "'%s'", where.events)
    else
        report:add("error", "events", "%s", message)
    end
end

local function check_pid_file(report, where)
    local directory = where.pid_file:match("^(.*)/")
    local writable, message = host.access(directory, "write")
    local stat = host.stat(where.pid_file, true)
    if not writable then
        report:add("error", "pid file", "%s", message)
    elseif stat and stat.type ~= "file" then
        report:add("error", "pid file", "'%s' is no file", where.pid_file)
    else
        report:add("ok", "pid file", "'%s'", where.pid_file)
    end
end

local function check_socket(report, where, found)
    if not settings.is_on(found.keys["control.socket"]) then
        return
    end
    local stat = host.stat(where.socket, true)
    if #where.socket >= agent.SOCKET_PATH then
        report:add("warning", "socket", "'%s' is too long for a socket: there "
            .. "will be none", where.socket)
    elseif stat and stat.type ~= "other" then
        report:add("warning", "socket", "'%s' is no socket: there will be none",
            where.socket)
    else
        report:add("ok", "socket", "'%s'", where.socket)
    end
end

---@param report kza.ctl.Report
---@param where kza.ctl.Place
---@param found kza.ctl.Settings
return function(report, where, found)
    check_read(report, where.bin, true)
    check_read(report, where.bin .. "/lib", true)
    check_read(report, where.bin .. "/kza_core", true)
    check_read(report, where.bin .. "/lua", false)
    if check_written(report, where.work) then
        check_log(report, where)
        check_dumps(report, where)
        check_events(report, where)
    end
    check_socket(report, where, found)
    check_pid_file(report, where)
end
