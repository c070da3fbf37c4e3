-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: who can change the files of the agent. A start judges the rest,
-- the installation above all; see what the start says.

local host = require("kza.host")
local settings = require("kza.ctl.settings")

local function paths_of(where)
    return {
        where.work, where.work .. "/kz_agent.ini", where.work .. "/log",
        where.log, where.dumps, where.work .. "/run", where.events,
        where.pid_file, where.pid_file .. ".lock",
    }
end

---@param report kza.ctl.Report
---@param where kza.ctl.Place
---@param found kza.ctl.Settings
return function(report, where, found)
    local is_strict = settings.is_on(found.keys["strict.owner"])
    local result = is_strict and "error" or "warning"
    local told = {}
    for _, path in ipairs(paths_of(where)) do
        for _, text in ipairs(host.changeable(path)) do
            if not told[text] then
                told[text] = true
                report:add(result, "owners", "%s", text)
            end
        end
    end
    if next(told) == nil then
        report:add("ok", "owners", "only root and the agent can change '%s'",
            where.work)
    end
end
