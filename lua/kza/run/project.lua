-- SPDX-License-Identifier: Apache-2.0
--
-- A project, known by its shape:
--
--     src/            modules; one of them is the application
--     tests/          scripts named *_test.lua
--     data/           files for dom:ReadArchive
--     lib/            C modules
--     kz_agent.ini    settings

local fail = require("kza.ctl.fail")
local files = require("kza.files")
local host = require("kza.host")

local project = {}

--- What is known of a project; all paths are absolute.
---@class kza.run.Project
---@field dir string
---@field name string     Of the application and its module.
---@field module string   Path of the module's file.
---@field src string
---@field tests string
---@field data string
---@field lib string
---@field ini string
---@field work string     Where the agent keeps its files.

-- A path list has no way to write these.
local function check_path(dir)
    local bad = dir:match("[;?]")
    if bad then
        fail("%s: no module is found below a directory with '%s' in its path",
            dir, bad)
    end
end

local function module_file(src, name)
    local base = files.join(src, (name:gsub("%.", "/")))
    for _, path in ipairs({ base .. ".lua", base .. "/init.lua" }) do
        local info = host.stat(path)
        if info and info.type ~= "directory" then
            return path
        end
    end
    fail("there is no module '%s' in %s; --app names another", name, src)
end

--- The project in a directory.
---@param directory string
---@param app? string  The application's module, when the directory is not named
---                    like it.
---@return kza.run.Project
function project.find(directory, app)
    local dir, message = host.real_path(directory)
    if not dir then
        fail("%s", message)
    end
    if not files.is_directory(dir) then
        fail("%s: not a directory", directory)
    end
    check_path(dir)
    local name = app or dir:match("[^/]*$")
    local src = files.join(dir, "src")
    return {
        dir = dir,
        name = name,
        module = module_file(src, name),
        src = src,
        tests = files.join(dir, "tests"),
        data = files.join(dir, "data"),
        lib = files.join(dir, "lib"),
        ini = files.join(dir, "kz_agent.ini"),
        work = files.join(dir, ".kz"),
    }
end

return project
