-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: the command line of a start.

local files = require("kza.files")

-- The directory in a template before its first `?`.
local function directory_of(template)
    local fixed = template:match("^[^?]*")
    return fixed:match("^(.*)/[^/]*$") or ""
end

-- Checks a list of templates. A relative one begins at the working directory,
-- which is the current directory in background mode.
local function check_paths(report, where, option)
    for template in option.value:gmatch("[^;]+") do
        local directory = directory_of(template)
        local path = directory:sub(1, 1) == "/" and directory
            or files.join(where.work, directory)
        if not template:find("?", 1, true) then
            report:add("warning", "options", "--%s '%s' has no '?' for the "
                .. "module", option.name, template)
        elseif template:sub(1, 1) ~= "/" then
            report:add("warning", "options", "--%s '%s' begins in the current "
                .. "directory, which is '%s' in the background", option.name,
                template, where.work)
        elseif not files.is_directory(path == "" and "/" or path) then
            report:add("warning", "options", "--%s '%s': there is no directory "
                .. "'%s'", option.name, template, path)
        end
    end
end

-- Checks the directory of extension archives. A relative one begins at the
-- executable's directory.
local function check_directory(report, where, option)
    local path = option.value
    if path:sub(1, 1) ~= "/" and path:sub(1, 1) ~= "~" then
        path = files.join(where.bin, path)
    end
    if path:sub(1, 1) == "/" and not files.is_directory(path) then
        report:add("warning", "options", "--extdir '%s': there is no directory "
            .. "'%s'", option.value, path)
    end
end

local CHECKS = {
    lua_path = check_paths, lua_cpath = check_paths, extdir = check_directory,
}

---@param report kza.ctl.Report
---@param where kza.ctl.Place
---@param found kza.ctl.Settings
return function(report, where, found)
    if found.bad_options then
        report:add("error", "options", "%s", found.bad_options)
        return
    end
    local words = table.concat(found.words, " ")
    report:add("ok", "options", "%s", words == "" and "none" or words)
    for _, option in ipairs(found.options) do
        local look = CHECKS[option.name]
        if look then
            look(report, where, option)
        end
    end
end
