-- SPDX-License-Identifier: Apache-2.0
--
-- How results look: JSON for programs; columns and colours on a terminal.

local host = require("kza.host")
local fail = require("kza.ctl.fail")
local json = require("dkjson")

local show = {}

--- Writes a line to standard output. It is out when this returns, for who
--- follows; a standard output that takes no more ends the command.
---@param text string
function show.line(text)
    local written, message = io.stdout:write(text, "\n")
    if written then
        written, message = io.stdout:flush()
    end
    if not written then
        fail("standard output: %s", message)
    end
end

--- Stands for what is not known, which JSON shows as null.
show.unknown = json.null

local is_terminal = host.isatty(1)
local COLOURS = { red = 31, green = 32, yellow = 33 }

--- One JSON object on a line of its own, its members in this order.
---@param object table
---@param order string[]
function show.json(object, order)
    for _, name in ipairs(order) do
        if object[name] == nil then
            object[name] = json.null
        end
    end
    show.line(json.encode(object, { keyorder = order }))
end

--- An array for show.json, also when it is empty.
---@param list table
function show.array(list)
    return setmetatable(list, { __jsontype = "array" })
end

--- The text in a colour where a person reads it.
---@param text string
---@param colour? "red"|"green"|"yellow"
function show.coloured(text, colour)
    if not (is_terminal and colour) then
        return text
    end
    return ("\27[%dm%s\27[0m"):format(COLOURS[colour], text)
end

-- How many characters a UTF-8 text has.
local function length(text)
    return select(2, text:gsub("[^\128-\191]", ""))
end
show.length = length

-- The longest beginning of a text that has at most so many characters.
local function cut_at(text, count)
    local at = 0
    for position in text:gmatch("()[^\128-\191]") do
        if at == count then
            return text:sub(1, position - 1), text:sub(position)
        end
        at = at + 1
    end
    return text, ""
end

-- Lines of at most so many characters, broken at blanks where there are any.
local function wrap(text, width)
    local lines = {}
    repeat
        local line, rest = cut_at(text, width)
        if rest ~= "" then
            local before, after = line:match("^(.*%S)%s+(%S*)$")
            if rest:find("^%s") then
                rest = rest:gsub("^%s+", "")
            elseif before then
                line, rest = before, after .. rest
            end
        end
        lines[#lines + 1] = line
        text = rest
    until text == ""
    return lines
end

--- A line of a table: fixed columns, then a text that takes the rest of the
--- line. On a terminal the text wraps below itself.
---@param columns { text: string, width: integer, colour?: string }[]
---@param text string
function show.row(columns, text)
    local cells, indent = {}, 0
    for _, column in ipairs(columns) do
        local pad = math.max(column.width - length(column.text), 0)
        cells[#cells + 1] = show.coloured(column.text, column.colour)
            .. (" "):rep(pad)
        indent = indent + length(column.text) + pad + 1
    end
    local head = table.concat(cells, " ")
    head = head == "" and "" or head .. " "
    local width = is_terminal and (host.columns(1) or 80)
    if not width or indent + length(text) <= width then
        show.line(((head .. text):gsub("%s+$", "")))
        return
    end
    -- On a narrow terminal the text has lines of its own.
    if width - indent < 20 and indent > 0 then
        show.line(((head):gsub("%s+$", "")))
        head, indent = "  ", 2
    end
    for i, line in ipairs(wrap(text, math.max(width - indent, 1))) do
        show.line((i == 1 and head or (" "):rep(indent)) .. line)
    end
end

return show
