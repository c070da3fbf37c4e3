-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR profile, inside the agent that runs the application.

local probe = require("kza.probe")

--- The file for the samples.
---@class kza.run.ProfilePlan
---@field samples string

---@param plan kza.run.ProfilePlan
return function(plan)
    assert(probe.profile(plan.samples))
end
