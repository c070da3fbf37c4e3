-- SPDX-License-Identifier: Apache-2.0
--
-- Says why the agent would refuse an archive or a package.
--
-- The rules are those by which the agent acts; for what an archive may hold it
-- is the very same code.

local host = require("kza.host")
local read_side_file = require("kza.side_file")

local function agent_version()
    return dom:Get("app.version"):match("^(%d+%.%d+%.%d+)%.%d+$")
end

-- Whether each entry can be had, unchanged since it was packed.
local function check_content(problems, path)
    local entries, message = host.entries(path, true)
    if not entries then
        problems[#problems + 1] = message
        return
    end
    for _, entry in ipairs(entries) do
        if entry.problem then
            problems[#problems + 1] =
                ("%s: %s"):format(entry.name, entry.problem)
        end
    end
end

-- Extension archives: the version is in a file beside the archive.
local function check_side_file(problems, path)
    local side = path .. ".version"
    local version, message = read_side_file(side)
    if not version then
        problems[#problems + 1] = side .. " " .. message
    elseif version ~= agent_version() then
        problems[#problems + 1] = ("made for version %s, this agent is %s")
            :format(version, agent_version())
    end
end

-- The version that a package's name is read to hold, nil when the name has no
-- place for one. What stands after the last dot is taken off first, always.
local function version_in_name(name)
    local text = name:match("^(.*)%.[^.]*$")
    text = text and text:match("^(.*)%-[^-]*$")
    text = text and text:match("%-([^-]*)$")
    return text ~= "" and text or nil
end

local function check_plugin_name(problems, path)
    local name = path:match("([^/]*)%.kzp$")
    local version = version_in_name(name)
    if version and version ~= agent_version() then
        problems[#problems + 1] = ("the name says version '%s', this agent "
            .. "is %s"):format(version, agent_version())
    end
    if name:find("^Agent%-Core") then
        problems[#problems + 1] =
            "a file named Agent-Core... is deleted, not installed"
    end
end

local function check_visible(problems, path)
    if path:match("[^/]*$"):sub(1, 1) == "." then
        problems[#problems + 1] = "a hidden file is not looked for"
    end
end

local function check_archive(problems, path, names_only)
    local ok, message = host.check_package(
        path, dom:Get("app.path.bin"), names_only)
    if not ok then
        problems[#problems + 1] = message
    end
end

local function check_entries(problems, path)
    check_archive(problems, path, false)
end

-- Nothing of a removal package is unpacked.
local function check_names(problems, path)
    check_archive(problems, path, true)
end

local checks = {
    kze = { check_content, check_side_file },
    kzp = { check_visible, check_plugin_name, check_entries, check_content },
    kzu = { check_visible, check_names },
}

--- The reasons for which the agent would refuse a file, none when it accepts
--- it. What it is shows in its extension.
---@param path string
---@return string[]
return function(path)
    local kind = checks[path:match("%.([^./]*)$")]
    if not kind then
        return { "neither an archive (.kze) nor a package (.kzp, .kzu)" }
    end
    local problems = {}
    for _, check in ipairs(kind) do
        check(problems, path)
    end
    return problems
end
