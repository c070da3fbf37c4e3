-- SPDX-License-Identifier: Apache-2.0
--
-- The line of JSON for an event of a host.

local json = require("dkjson")

local line = {}

local ORDER = {
    "host", "id", "number", "severity", "time", "time_ms", "text",
}

local REPLACEMENT = "\239\191\189" -- U+FFFD

-- The length of the UTF-8 character at a place of a text, nil when there is
-- none.
local function character_at(text, at)
    local first, second = text:byte(at, at + 1)
    if first < 0x80 then
        return 1
    end
    local tail = text:match("^[\128-\191]+", at + 1) or ""
    if first >= 0xC2 and first <= 0xDF and #tail >= 1 then
        return 2
    elseif first >= 0xE0 and first <= 0xEF and #tail >= 2
        and not (first == 0xE0 and second < 0xA0)
        and not (first == 0xED and second > 0x9F) then
        return 3
    elseif first >= 0xF0 and first <= 0xF4 and #tail >= 3
        and not (first == 0xF0 and second < 0x90)
        and not (first == 0xF4 and second > 0x8F) then
        return 4
    end
end

-- JSON is UTF-8; a byte that is none shows as the character for that.
local function as_utf8(text)
    if not text:find("[\128-\255]") then
        return text
    end
    local parts, at = {}, 1
    while at <= #text do
        local length = character_at(text, at)
        parts[#parts + 1] = length and text:sub(at, at + length - 1)
            or REPLACEMENT
        at = at + (length or 1)
    end
    return table.concat(parts)
end

--- The line for an entry, {id, {name, value...}}, of a host's stream. What an
--- entry lacks is null.
function line.of(host_name, entry)
    local given = {}
    for i = 1, #entry[2], 2 do
        given[entry[2][i]] = entry[2][i + 1]
    end
    local values = {
        host = as_utf8(host_name),
        id = tonumber(entry[1]:match("^%d+")),
        text = given.text and as_utf8(given.text),
    }
    for _, name in ipairs(ORDER) do
        if values[name] == nil then
            values[name] = tonumber(given[name]) or json.null
        end
    end
    return json.encode(values, { keyorder = ORDER })
end

return line
