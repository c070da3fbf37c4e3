-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl install and remove: put packages beside the agent, for its next start.

local deliver = require("kza.ctl.deliver")
local fail = require("kza.ctl.fail")
local package_list = require("kza.ctl.package_list")
local package_row = require("kza.ctl.package_row")
local settings = require("kza.ctl.settings")
local show = require("kza.ctl.show")

local function put(context, deliveries, trust)
    deliver.put(context.where, deliveries, trust)
    for _, delivery in ipairs(deliveries) do
        local package = package_list.find(context.where, delivery.name, trust)
        if context.json and package then
            package_row.show(context, package)
        elseif not context.json then
            show.line(("'%s' waits for the next start with --install_plugins")
                :format(delivery.name))
        end
    end
    return 0
end

local function install(context)
    local deliveries = {}
    for i, path in ipairs(context.args.file) do
        local name = path:match("[^/]*$")
        if not name:find("%.kz[pu]$") then
            fail("'%s' is no package (.kzp, .kzu)", path)
        end
        deliveries[i] = { from = path, name = name }
    end
    return put(context, deliveries, settings.trust_of(context.where))
end

local function installed(packages)
    local found = {}
    for _, package in ipairs(packages) do
        found[#found + 1] = package.is_installed and package or nil
    end
    return found
end

local function remove(context)
    local trust = settings.trust_of(context.where)
    local package = package_list.by_name(
        installed(package_list.read(context.where, trust)), context.args.name)
    if package.state == "removed" then
        fail("'%s' is removed already", package.file)
    end
    return put(context,
        { { from = package.path, name = package.full_name .. ".kzu" } }, trust)
end

return {
    {
        name = "install",
        summary = "puts packages beside the agent",
        description = [[
Checks packages as the agent would, their signatures too where it asks for
them, and when all are good puts copies of them and of their signatures beside
the agent. They are applied at the next start with --install_plugins. When one
is refused, or there is no room, nothing is changed.]],
        define = function(command)
            command:argument("file", "a package, .kzp or .kzu"):args("+")
                :argname("FILE")
        end,
        json = package_row.ORDER,
        run = install,
    },
    {
        name = "remove",
        summary = "has the files of a package removed",
        description = [[
Makes a removal package of one that is installed, with its signature, and puts
it beside the agent. It is applied at the next start with --install_plugins.
NAME is that of the plugin, or of the package's file.]],
        define = function(command)
            command:argument("name", "the plugin, or the package's file")
                :argname("NAME")
        end,
        json = package_row.ORDER,
        run = remove,
    },
}
