-- SPDX-License-Identifier: Apache-2.0
--
-- Options of an agent: those of a process that runs, and in one form.

local startup = require("kza.startup")

local options = {}

--- The words of a process behind its program.
---@param process kza.host.Process
---@return string[]
function options.of_process(process)
    local words = {}
    for i = 2, #process.words do
        words[i - 1] = process.words[i]
    end
    return words
end

-- The words before the first "--", and from it on: the application's own.
local function split(words)
    local own, rest = {}, {}
    for _, word in ipairs(words) do
        local list = (word == "--" or #rest > 0) and rest or own
        list[#list + 1] = word
    end
    return own, rest
end

--- What words say to the agent itself.
---@param words string[]
---@return kza.startup.Option[]? given
---@return string? message  What a start would complain of.
function options.parse(words)
    return startup.options((split(words)))
end

--- What words say, by the long names of the options; a switch is true. Of
--- several values the last one counts.
---@param words string[]
---@return table<string, string|boolean>
function options.values(words)
    local found = {}
    for _, option in ipairs(options.parse(words) or {}) do
        found[option.name] = option.value or true
    end
    return found
end

--- Words that say the same, in the long form, without some options and without
--- those of the application.
---@param given kza.startup.Option[]
---@param left_out table<string, boolean>
---@return string[]
function options.words(given, left_out)
    local words = {}
    for _, option in ipairs(given) do
        if not left_out[option.name] then
            words[#words + 1] = "--" .. option.name
            words[#words + 1] = option.value
        end
    end
    for _, word in ipairs(given.words) do
        words[#words + 1] = word
    end
    return words
end

-- These a start gets in any case.
local OF_EVERY_START = { appname = true, background = true, workdir = true }

--- The words with which a start would make such a process again.
---@param process kza.host.Process
---@return string[]
function options.again(process)
    local own, rest = split(options.of_process(process))
    local given = startup.options(own)
    local words = given and options.words(given, OF_EVERY_START) or own
    for _, word in ipairs(rest) do
        words[#words + 1] = word
    end
    return words
end

return options
