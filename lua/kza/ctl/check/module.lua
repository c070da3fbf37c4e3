-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: that the application's module is found and compiles.

---@param report kza.ctl.Report
---@param where kza.ctl.Place
---@param found kza.ctl.Settings
return function(report, where, found)
    if found.module then
        report:add("ok", "module", "'%s' is '%s'", where.name, found.module)
    elseif found.problem then
        -- The list of the places searched is left out: it has a line for each.
        local problem = found.problem:gsub(":\n\tno .*$", "")
        report:add("error", "module", "%s", problem)
    end
end
