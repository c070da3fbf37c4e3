-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR test, inside the agent that runs the tests.

local files = require("kza.files")
local junit_output = require("kza.run.junit_output")
local literal = require("kza.run.literal")
local lu = require("luaunit")
local probe = require("kza.probe")
local tap_output = require("kza.run.tap_output")
local unit = require("kza.unit")

-- An exit status has eight bits: 256 failures must not look like none.
local MAX_STATUS = 255

--- What the command says to its steps.
---@class kza.run.TestPlan
---@field scripts string[]
---@field result string     File for what came out.
---@field pattern? string
---@field limit? number
---@field tap? boolean
---@field junit? string     File for the results.
---@field cover? string     Directory whose files are counted.

local function say(text, ...)
    io.stderr:write("kzrun: ", text:format(...), "\n")
end

-- LuaUnit's own output stands unless there is a reason.
local function outputs_of(plan, tap)
    if not tap and not plan.junit then
        return nil
    end
    return { tap and tap_output(tap) or lu.LuaUnit.outputType,
        plan.junit and junit_output(plan.junit, say) }
end

local function run(plan, tap)
    local failures = unit.run(plan.scripts, {
        say = say, pattern = plan.pattern, limit = plan.limit,
        outputs = outputs_of(plan, tap),
    })
    files.write(plan.result, literal.write({
        failures = failures, covered = plan.cover and probe.covered(),
    }))
    return math.min(failures, MAX_STATUS)
end

---@param plan kza.run.TestPlan
return function(plan)
    -- From now on, so that nothing that the application prints is among it.
    local tap = plan.tap and probe.take_output()
    package.preload["tests.kzaunit"] = function()
        return function() return run(plan, tap) end
    end
    if plan.limit then
        -- Coroutines that the application makes are then ready for the limit.
        probe.limit(plan.limit, function() end)
    end
    if plan.cover then
        probe.cover(plan.cover)
    end
end
