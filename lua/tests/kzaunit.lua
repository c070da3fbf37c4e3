-- SPDX-License-Identifier: Apache-2.0
--
-- The unit-test driver: runs Lua test scripts under LuaUnit.
--
--     kz_agent --appname mytool --unittest 'tests/*.lua' -- --verbose
--
-- The agent calls this module with the value of --unittest: paths separated by
-- ";", in which "*" and "?" are expanded here, by this module, in sorted order.
-- A directory stands for the Lua files in it and below it.
--
-- The words after "--" are LuaUnit's own: --pattern, --verbose, --output TAP,
-- --output junit --name FILE, names of tests, and so on.

local files = require("kza.files")
local unit = require("kza.unit")

-- An exit status has eight bits: 256 failures must not look like none.
local MAX_STATUS = 255

local function say(text, ...)
    print("kzaunit: " .. text:format(...))
end

-- Expanding the pattern -----------------------------------------------------

local function add_script(scripts, path)
    if not scripts[path] then
        scripts[path] = true
        scripts[#scripts + 1] = path
    end
end

local function add_directory(scripts, directory)
    local entries, message = files.tree(directory)
    if not entries then
        say("%s", message)
        return false
    end
    for _, entry in ipairs(entries) do
        local hidden = ("/" .. entry.name):find("/.", 1, true)
        if entry.info.type ~= "directory" and not hidden
            and entry.name:find("%.lua$") then
            add_script(scripts, entry.path)
        end
    end
    return true
end

-- Adds the scripts that one item of the pattern names; false without any.
local function add_item(scripts, item)
    local found = files.glob(item)
    if #found == 0 then
        say("no script matches '%s'", item)
        return false
    end
    local whole = true
    for _, path in ipairs(found) do
        if files.is_directory(path) then
            whole = add_directory(scripts, path) and whole
        else
            add_script(scripts, path)
        end
    end
    return whole
end

-- The scripts that a pattern names, each once, and the number of its items that
-- name none.
local function expand(pattern)
    local scripts, failures = {}, 0
    for item in pattern:gmatch("[^;]+") do
        if not add_item(scripts, item) then
            failures = failures + 1
        end
    end
    return scripts, failures
end

-- Running -------------------------------------------------------------------

local function run(pattern)
    local scripts, failures = expand(pattern)
    if #scripts == 0 then
        if failures == 0 then
            say("no script matches '%s'", pattern)
        end
        return math.max(failures, 1)
    end
    return failures + unit.run(scripts, { say = say })
end

return function(pattern)
    return math.min(run(pattern), MAX_STATUS)
end
