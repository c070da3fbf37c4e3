-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: the archives that modules are searched in. Archives that the
-- start leaves out, because of their side files or their permissions, are in
-- the start's own records (start.lua).

local host = require("kza.host")
local unloadable = require("kza.unloadable")

local function check_entries(report, path, entries)
    local names, damaged = {}, nil
    for _, entry in ipairs(entries) do
        if entry.problem then
            damaged = damaged or entry
        end
        if entry.name:sub(-1) ~= "/" then
            names[#names + 1] = entry.name
        end
    end
    if damaged then
        report:add("error", "archives", "%s: %s: %s", path, damaged.name,
            damaged.problem)
        return
    end
    table.sort(names)
    report:add("ok", "archives", "'%s' has %d files", path, #names)
    for _, warning in ipairs(unloadable(names)) do
        report:add("warning", "archives", "%s: %s", path, warning)
    end
end

---@param report kza.ctl.Report
---@param found kza.ctl.Settings
return function(report, _, found)
    local list = found.keys["app.lua.zippath"] or ""
    for path in list:gmatch("[^;]+") do
        local entries, message = host.entries(path, true)
        if entries then
            check_entries(report, path, entries)
        else
            report:add("error", "archives", "%s", message)
        end
    end
end
