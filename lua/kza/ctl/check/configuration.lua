-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: the entries of the configuration files.

local host = require("kza.host")
local startup = require("kza.startup")

-- Names of entries, in lower case: the framework ignores the case of letters.
-- The agent itself compares the names of SQLite's settings, where case matters.
local NAMES = { trace = true, fipsmode = true, dumplevel = true }
local SQLITE = "^sqlite%.config"

local function is_known(name)
    return NAMES[name:lower()] or name:lower():find(".%.trace$")
        or name:find(SQLITE)
end

local function needs_number(name)
    return name:lower() == "dumplevel" or name:find(SQLITE)
end

-- True for an integer in the framework's decimal form.
local function is_number(value)
    return value:find("^%s*[+-]?%d+$") ~= nil
end

local function check_entry(report, path, entry)
    local shown = entry.group == "" and entry.name
        or ("[%s] %s"):format(entry.group, entry.name)
    if entry.group:lower() == "domain" then
        return -- keys of the domain may have any name
    end
    if entry.group ~= "" or not is_known(entry.name) then
        report:add("warning", "configuration", "'%s' in '%s' is no setting of "
            .. "the agent", shown, path)
    elseif needs_number(entry.name) and not is_number(entry.value) then
        report:add("warning", "configuration", "'%s' in '%s' is no integer, "
            .. "and ignored: '%s'", shown, path, entry.value)
    end
end

local function problem_of(path, stat)
    if stat.type ~= "file" then
        return "is no file"
    end
    local file, message = io.open(path, "rb")
    if not file then
        return "cannot be read" .. message:sub(#path + 1)
    end
    file:close()
end

local function check_file(report, path)
    local stat, message = host.stat(path)
    if not stat and message:find("No such file", 1, true) then
        report:add("ok", "configuration", "'%s' is not there", path)
        return
    end
    local problem = not stat and "cannot be read" .. message:sub(#path + 1)
        or problem_of(path, stat)
    if problem then
        report:add("error", "configuration", "'%s' %s", path, problem)
        return
    end
    local entries = startup.configuration(path)
    report:add("ok", "configuration", "'%s' has %d entries", path, #entries)
    for _, entry in ipairs(entries) do
        check_entry(report, path, entry)
    end
end

---@param report kza.ctl.Report
---@param where kza.ctl.Place
return function(report, where)
    check_file(report, dom:Get("app.path.ini.global"))
    check_file(report, where.work .. "/kz_agent.ini")
end
