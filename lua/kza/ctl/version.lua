-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl version: of this program, of its libraries and of the running agent.

local agent = require("kza.ctl.agent")
local host = require("kza.host")
local show = require("kza.ctl.show")

local VERSIONS = { "kzctl", "agent", "wxwidgets", "lua", "openssl", "sqlite" }

-- nil when no agent answers, which is no failure here.
local function agent_version(where)
    local answered, answer = pcall(function()
        return agent.ask(agent.connect(where), { ["do"] = "version" })
    end)
    return answered and answer.version or nil
end

local function version(context)
    local versions = host.versions()
    local found = {
        kzctl = dom:Get("app.version"), agent = agent_version(context.where),
        wxwidgets = versions.wxwidgets, lua = versions.lua,
        openssl = versions.openssl, sqlite = versions.sqlite,
    }
    if context.json then
        show.json(found, VERSIONS)
        return 0
    end
    for _, name in ipairs(VERSIONS) do
        show.row({ { text = name, width = 9 } }, found[name]
            or "unknown: it does not run, or not with control.socket")
    end
    return 0
end

return {
    {
        name = "version",
        summary = "versions of kzctl and of the running agent",
        description = "Shows the version of this program, of the libraries "
            .. "that it is linked with, and of the running agent when it "
            .. "answers through its control socket.",
        json = VERSIONS,
        run = version,
    },
}
