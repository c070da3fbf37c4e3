-- SPDX-License-Identifier: Apache-2.0
--
-- The output of results: JSON for programs; columns and colours on a terminal.

local host = require("kza.host")
local fail = require("kza.ctl.fail")
local json = require("dkjson")
local utf8 = require("kza.utf8")

local show = {}

--- Writes a line to standard output and flushes it, for a reader that follows
--- the output. When standard output cannot be written, the command ends.
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

--- The value of an unknown fact; JSON shows it as null.
show.unknown = json.null

local is_terminal = host.isatty(1)
local COLOURS = { red = 31, green = 32, yellow = 33 }

-- A copy in which every text is UTF-8, as JSON must be.
local function in_utf8(value)
    if type(value) == "string" then
        return utf8.valid(value)
    elseif type(value) ~= "table" or value == json.null
        or (getmetatable(value) or {}).__tojson then
        return value
    end
    local copy = setmetatable({}, getmetatable(value))
    for key, member in pairs(value) do
        copy[key] = in_utf8(member)
    end
    return copy
end

--- One JSON object on a line of its own, with these members in this order.
---@param object table
---@param order string[]
---@param inner_order? string[]  Of the members of objects in it.
function show.json(object, order, inner_order)
    local members, names = {}, {}
    for i, name in ipairs(order) do
        local value = object[name]
        members[name] = value == nil and json.null or in_utf8(value)
        names[i] = name
    end
    for _, name in ipairs(inner_order or {}) do
        names[#names + 1] = name
    end
    show.line(json.encode(members, { keyorder = names }))
end

--- An array for show.json, also when it is empty.
---@param list table
function show.array(list)
    return setmetatable(list, { __jsontype = "array" })
end

--- The text, coloured when standard output is a terminal.
---@param text string
---@param colour? "red"|"green"|"yellow"
function show.coloured(text, colour)
    if not (is_terminal and colour) then
        return text
    end
    return ("\27[%dm%s\27[0m"):format(COLOURS[colour], text)
end

-- Replaces characters that a terminal would take for a command by "?". Texts
-- come from files that any program may have written.
local function harmless(text)
    return is_terminal and text:gsub("[%c\127]", "?") or text
end

-- The longest beginning of a text that has at most `count` characters.
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

--- Splits a text into lines of at most `width` characters, at blanks where
--- there are any.
---@param text string
---@param width integer
---@return string[]
function show.wrap(text, width)
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

-- The text of the columns side by side, and its width on the screen.
local function join(columns)
    local cells, width = {}, 0
    for _, column in ipairs(columns) do
        local text = harmless(column.text)
        local length = utf8.length(text)
        local pad = math.max(column.width - length, 0)
        cells[#cells + 1] = show.coloured(text, column.colour)
            .. (" "):rep(pad)
        width = width + length + pad + 1
    end
    cells[#cells + 1] = "" -- for a blank at the end
    return table.concat(cells, " "), width
end

local function without_end_blanks(text)
    return (text:gsub("%s+$", ""))
end

--- Writes a line of a table: fixed columns, then a text in the rest of the
--- line. On a terminal the text is wrapped within its own column.
---@param columns { text: string, width: integer, colour?: string }[]
---@param text string
---@param colour? string  Of the text.
function show.row(columns, text, colour)
    local head, indent = join(columns)
    text = harmless(text)
    local width = is_terminal and (host.columns(1) or 80)
    if not width or indent + utf8.length(text) <= width then
        show.line(text == "" and without_end_blanks(head)
            or head .. show.coloured(text, colour))
        return
    end
    -- On a narrow terminal the text is on lines of its own.
    if width - indent < 20 and indent > 0 then
        show.line(without_end_blanks(head))
        head, indent = "  ", 2
    end
    for i, line in ipairs(show.wrap(text, math.max(width - indent, 1))) do
        show.line((i == 1 and head or (" "):rep(indent))
            .. show.coloured(line, colour))
    end
end

--- Prints what a command has brought about: a text, or the state as JSON.
---@param context { json: boolean, where: kza.ctl.Place }
---@param state "running"|"stopped"
---@param text string
function show.outcome(context, state, text)
    if context.json then
        show.json({ name = context.where.name, state = state },
            { "name", "state" })
    else
        show.line(text)
    end
end

--- Writes a named fact on a line; nothing when the value is nil.
---@param name string
---@param value any
---@param colour? string
function show.fact(name, value, colour)
    if value ~= nil then
        show.row({ { text = name, width = 9 } }, tostring(value), colour)
    end
end

return show
