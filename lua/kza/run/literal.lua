-- SPDX-License-Identifier: Apache-2.0
--
-- Values as Lua source, to hand them to another agent.

local literal = {}

local function write(parts, value)
    if type(value) ~= "table" then
        parts[#parts + 1] = type(value) == "string" and ("%q"):format(value)
            or type(value) == "number" and ("%.17g"):format(value)
            or tostring(value)
        return
    end
    parts[#parts + 1] = "{"
    for key, field in pairs(value) do
        parts[#parts + 1] = "["
        write(parts, key)
        parts[#parts + 1] = "]="
        write(parts, field)
        parts[#parts + 1] = ","
    end
    parts[#parts + 1] = "}"
end

--- Source for a value of strings, numbers, booleans, and tables of them.
---@return string
function literal.write(value)
    local parts = {}
    write(parts, value)
    return table.concat(parts)
end

--- The value of such source; nil when it is none.
---@param text string
function literal.read(text)
    local chunk = load("return " .. text, "=literal", "t", {})
    return chunk and chunk()
end

return literal
