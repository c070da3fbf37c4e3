-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl check: finds problems that a start would have.

local settings = require("kza.ctl.settings")
local show = require("kza.ctl.show")

local ORDER = { "result", "what", "text" }
local COLOURS = { warning = "yellow", error = "red" }

-- The sections, in the order of a start.
local SECTIONS = {
    "options", "configuration", "start", "places", "owners", "archives",
    "module", "packages",
}

--- Writes the findings of the sections, each at once, and counts them.
---@class kza.ctl.Report
---@field counts table<string, integer>
local Report = {}
Report.__index = Report

---@param result "ok"|"warning"|"error"
---@param what string
---@param text string
function Report:add(result, what, text, ...)
    if select("#", ...) > 0 then
        text = text:format(...)
    end
    self.counts[result] = self.counts[result] + 1
    self:print(result, what, (text:gsub("%s*\n%s*", " ")))
end

function Report:print(result, what, text)
    if self.json then
        show.json({ result = result, what = what, text = text }, ORDER)
    else
        show.row({ { text = result, width = 7, colour = COLOURS[result] },
            { text = what, width = 13 } }, text)
    end
end

local function counted(count, noun)
    return ("%d %s%s"):format(count, noun, count == 1 and "" or "s")
end

-- Writes the numbers of findings, in a record with the worst result.
function Report:finish()
    local counts = self.counts
    local worst = counts.error > 0 and "error"
        or counts.warning > 0 and "warning" or "ok"
    self:print(worst, "sums", ("%d ok, %s, %s"):format(counts.ok,
        counted(counts.warning, "warning"), counted(counts.error, "error")))
    return counts.error > 0 and 1 or 0
end

local function check(context)
    local words = context.args.option or {}
    if #words == 0 then
        words = settings.options(context.where)
    end
    local report = setmetatable({ json = context.json,
        counts = { ok = 0, warning = 0, error = 0 } }, Report)
    local found = settings.find(context.where, words)
    found.words = words
    for _, section in ipairs(SECTIONS) do
        require("kza.ctl.check." .. section)(report, context.where, found)
    end
    return report:finish()
end

return {
    {
        name = "check",
        summary = "what a start would trip over",
        description = [[
Looks at everything that a start needs, without starting: options,
configuration, directories and who can change them, archives, the application's
module, packages, keys and FIPS mode. One line for each, 'ok', 'warning' or
'error', and a last one with the sums; ends with 1 when there was an error.

The options are those behind '--', else those of the agent when it runs, else
those that the installed service gets. Nothing of the application runs.]],
        define = function(command)
            command:argument("option", "options of kz_agent, after --")
                :args("*")
            command:usage("Usage: kzctl check [-- OPTION...]")
        end,
        json = ORDER,
        run = check,
    },
}
