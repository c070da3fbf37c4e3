-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl heartbeat: asks the running agent for one.

local agent = require("kza.ctl.agent")

local function heartbeat(context)
    agent.ask(agent.connect(context.where),
        { ["do"] = "set", key = "kza.HeartbeatNow", value = true })
    return 0
end

return {
    {
        name = "heartbeat",
        summary = "asks for a heartbeat at once",
        description = "Sets kza.HeartbeatNow, which asks the running agent "
            .. "for a heartbeat at once." .. agent.NEEDS_SOCKET,
        run = heartbeat,
    },
}
