-- SPDX-License-Identifier: Apache-2.0
--
-- A profile in the file formats of speedscope and of flamegraph.pl.

local json = require("dkjson")

local speedscope = {}

local SCHEMA = "https://www.speedscope.app/file-format-schema.json"

local function frames_of(profile)
    local frames = {}
    for i, frame in ipairs(profile.frames) do
        frames[i] = { name = frame.name, file = frame.file, line = frame.line }
    end
    return frames
end

local function array(list)
    return setmetatable(list, { __jsontype = "array" })
end

-- The indices of frames begin with 0 in the file.
local function from_zero(stack)
    local indices = array({})
    for i, index in ipairs(stack) do
        indices[i] = index - 1
    end
    return indices
end

--- The text of a speedscope file.
---@param profile kza.run.Profile
---@param name string
---@return string
function speedscope.json(profile, name)
    local stacks, weights = array({}), array({})
    for i, sample in ipairs(profile.samples) do
        stacks[i], weights[i] = from_zero(sample.stack), sample.ms
    end
    return json.encode({
        ["$schema"] = SCHEMA,
        name = name,
        exporter = "kzrun " .. dom:Get("app.version"),
        activeProfileIndex = 0,
        shared = { frames = array(frames_of(profile)) },
        profiles = { {
            type = "sampled", name = name, unit = "milliseconds",
            startValue = 0, endValue = profile.ms,
            samples = stacks, weights = weights,
        } },
    }) .. "\n"
end

-- In a folded line, ";" separates frames and the last blank the number.
local function folded_stack(profile, stack)
    local labels = {}
    for i, index in ipairs(stack) do
        labels[i] = profile.frames[index].label:gsub(";", ",")
    end
    return table.concat(labels, ";")
end

--- Each call stack on a line, with its milliseconds, rounded.
---@param profile kza.run.Profile
---@return string
function speedscope.folded(profile)
    local sums, order = {}, {}
    for _, sample in ipairs(profile.samples) do
        local text = folded_stack(profile, sample.stack)
        if not sums[text] then
            order[#order + 1] = text
        end
        sums[text] = (sums[text] or 0) + sample.ms
    end
    table.sort(order)
    local lines = {}
    for _, text in ipairs(order) do
        local ms = math.floor(sums[text] + 0.5)
        if ms > 0 and text ~= "" then
            lines[#lines + 1] = ("%s %d\n"):format(text, ms)
        end
    end
    return table.concat(lines)
end

return speedscope
