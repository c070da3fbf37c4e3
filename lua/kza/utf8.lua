-- SPDX-License-Identifier: Apache-2.0
--
-- Texts that should be UTF-8.

local utf8 = {}

local REPLACEMENT = "\239\191\189" -- U+FFFD

-- Patterns of a character of more than one byte, by the ranges of its first
-- byte.
local SEQUENCES = {
    { "^[\194-\223][\128-\191]" },
    { "^\224[\160-\191][\128-\191]",
        "^[\225-\236\238\239][\128-\191][\128-\191]",
        "^\237[\128-\159][\128-\191]" },
    { "^\240[\144-\191][\128-\191][\128-\191]",
        "^[\241-\243][\128-\191][\128-\191][\128-\191]",
        "^\244[\128-\143][\128-\191][\128-\191]" },
}

local function sequence_at(text, at)
    local lead = text:byte(at)
    local patterns = SEQUENCES[lead < 224 and 1 or lead < 240 and 2 or 3]
    for _, pattern in ipairs(patterns) do
        local found = text:sub(at, at + 3):match(pattern)
        if found then
            return found
        end
    end
end

--- The text, with U+FFFD in the place of each byte that is not UTF-8.
---@param text string
---@return string
function utf8.valid(text)
    if not text:find("[\128-\255]") then
        return text
    end
    local parts, at = {}, 1
    while at <= #text do
        local plain = text:match("^[%z\1-\127]+", at)
        local part = plain or sequence_at(text, at)
        parts[#parts + 1] = part or REPLACEMENT
        at = at + #(part or " ")
    end
    return table.concat(parts)
end

--- The number of characters in a text.
---@param text string
---@return integer
function utf8.length(text)
    return select(2, text:gsub("[^\128-\191]", ""))
end

return utf8
