-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: packages, and the keys that may sign them.

local package_list = require("kza.ctl.package_list")
local settings = require("kza.ctl.settings")

local RESULTS = {
    installed = "ok", removed = "ok", waiting = "ok", changed = "warning",
    refused = "error",
}

local function check_keys(report, found, trust)
    for _, text in ipairs(trust.passed_over) do
        report:add("warning", "keys", "%s", text)
    end
    if trust.message then
        report:add("error", "keys", "no package will be applied: %s",
            trust.message)
    elseif trust.keys then
        report:add("ok", "keys", "'%s'", found.keys["packages.keys"])
    end
end

local function applies_packages(found)
    for _, option in ipairs(found.options) do
        if option.name == "install_plugins" then
            return true
        end
    end
    return false
end

---@param report kza.ctl.Report
---@param where kza.ctl.Place
---@param found kza.ctl.Settings
return function(report, where, found)
    local trust = settings.trust(found)
    check_keys(report, found, trust)
    for _, package in ipairs(package_list.read(where, trust)) do
        report:add(RESULTS[package.state], "packages", "%s: %s%s",
            package.file, package.state,
            package.reason and ": " .. package.reason or "")
        if package.state == "waiting" and not applies_packages(found) then
            report:add("warning", "packages", "%s: applied only with "
                .. "--install_plugins", package.file)
        end
    end
end
