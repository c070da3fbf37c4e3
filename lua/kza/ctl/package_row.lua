-- SPDX-License-Identifier: Apache-2.0
--
-- The output of kzctl for a package.

local records = require("kza.ctl.records")
local show = require("kza.ctl.show")

local package_row = {}

--- The members of a package in JSON.
package_row.ORDER = {
    "name", "version", "state", "file", "time", "files", "reason", "signed_by",
}

local COLOURS = { changed = "yellow", removed = "yellow", refused = "red" }

--- Shows a package, as JSON or as a line of a table.
---@param context { json: boolean }
---@param package kza.ctl.Package
function package_row.show(context, package)
    if context.json then
        package.time = records.iso(package.time)
        show.json(package, package_row.ORDER)
        return
    end
    show.row({
        { text = package.state, width = 9, colour = COLOURS[package.state] },
        { text = package.name, width = 12 },
        { text = package.version or "-", width = 8 } },
        package.file .. (package.reason and ": " .. package.reason or ""))
end

return package_row
