-- SPDX-License-Identifier: Apache-2.0
--
-- Started with the options and the configuration of an application, reports
-- what that application's start would find. No code of the application runs.
--
--     kz_agent --appname kza.ctl.probe OPTION... -- NAME FILE
--
-- writes the report to FILE as a JSON object.

local files = require("kza.files")
local host = require("kza.host")
local json = require("dkjson")

local KEYS = {
    "app.fipsmode", "app.lua.cpath", "app.lua.path", "app.lua.zippath",
    "app.path.ini.global", "control.socket", "packages.keys", "strict.owner",
}

-- The last two searchers load C modules, which would run their code.
local C_SEARCHERS = 2

-- Adds the application's own archive, which comes before the others.
local function add_own_archive(name)
    local own = ("%s/kza_core/%s.kze"):format(dom:Get("app.path.bin"), name)
    local others = dom:Get("app.lua.zippath")
    local stat = host.stat(own)
    if stat and stat.type == "file" and name ~= "kza" then
        dom:Set("app.lua.zippath", own .. (others and ";" .. others or ""))
    end
end

-- The place where `require` finds the module; nil and the reason when it cannot
-- be loaded.
local function find_module(name)
    local tried = {}
    for i = 1, #package.searchers - C_SEARCHERS do
        local ok, loader, place = pcall(package.searchers[i], name)
        if not ok then
            return nil, loader
        elseif type(loader) == "function" then
            return place or "package.preload"
        end
        tried[#tried + 1] = loader
    end
    local place, message = package.searchpath(name, package.cpath)
    if place then
        return place
    end
    return nil, ("module '%s' not found:%s%s"):format(name,
        table.concat(tried), message)
end

local function main()
    local name, file = arg[1], arg[2]
    add_own_archive(name)
    local place, problem = find_module(name)
    local found = { module = place, problem = problem, keys = {} }
    for _, key in ipairs(KEYS) do
        found.keys[key] = dom:Get(key)
    end
    local written, message = files.write(file, json.encode(found))
    if not written then
        error(message, 0)
    end
end

return { main = main }
