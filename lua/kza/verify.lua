-- SPDX-License-Identifier: Apache-2.0
--
-- Finds the reasons why the agent would refuse an archive or a package.
--
-- The rules are those of the agent. The content of an archive is checked by the
-- agent's own code.

local host = require("kza.host")
local package_name = require("kza.package_name")
local read_side_file = require("kza.side_file")

local function agent_version()
    return dom:Get("app.version"):match("^(%d+%.%d+%.%d+)%.%d+$")
end

-- Checks that each entry can be read, unchanged since it was packed.
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

-- Checks the version of an extension archive, in a file beside it.
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

local function check_plugin_name(problems, path)
    local name = path:match("([^/]*)%.kzp$")
    local version = package_name.version(name)
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

local function check_signature(problems, path, keys)
    local signer, message = true, nil
    if keys then
        signer, message = keys:signer(path)
    end
    if not signer then
        problems[#problems + 1] = message
        return false
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

-- Checks a removal package, of which no entry is unpacked.
local function check_names(problems, path)
    check_archive(problems, path, true)
end

-- The checks of each kind, in their order. The signature of a package is
-- checked before its content is read.
local checks = {
    kze = { check_content, check_side_file },
    kzp = {
        check_visible, check_plugin_name, check_signature, check_entries,
        check_content,
    },
    kzu = { check_visible, check_signature, check_names },
}

--- The reasons why the agent would refuse a file; none when it accepts the
--- file. The extension decides whether the file is an archive or a package.
---@param path string
---@param keys? { signer: fun(self, path: string): string?, string? }  The keys
---     of which one must have signed each package.
---@return string[]
return function(path, keys)
    local kind = checks[path:match("%.([^./]*)$")]
    if not kind then
        return { "neither an archive (.kze) nor a package (.kzp, .kzu)" }
    end
    local problems = {}
    for _, check in ipairs(kind) do
        if check(problems, path, keys) == false then
            break
        end
    end
    return problems
end
