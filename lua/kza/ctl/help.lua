-- SPDX-License-Identifier: Apache-2.0
--
-- The help of one command of kzctl, in the sections of a man page.

local show = require("kza.ctl.show")

local INDENT = "    "

-- What the parser lists, under its own titles.
local TITLES = { "Arguments", "Options", "Commands" }

local STATUSES = {
    { "0", "done" },
    { "1", "it failed, or what was asked for is not so" },
    { "2", "wrong usage" },
}

local function add(lines, text)
    lines[#lines + 1] = text == "" and "" or INDENT .. text
end

-- A line of a table: a word, blanks, and a text that wraps below itself.
local function add_row(lines, row, width)
    local head, text = row:match("^(%s*%S+%s%s+)(.*)$")
    if not head then
        head, text = row:match("^(%s*)(.*)$")
    end
    for i, line in ipairs(show.wrap(text, width - #INDENT - #head)) do
        add(lines, (i == 1 and head or (" "):rep(#head)) .. line)
    end
end

-- Paragraphs are filled; those that begin with a blank are tables.
local function add_text(lines, text, width)
    for paragraph in (text .. "\n\n"):gmatch("(.-)\n\n+") do
        if paragraph:find("^%s") then
            for row in paragraph:gmatch("[^\n]+") do
                add_row(lines, row, width)
            end
        elseif paragraph ~= "" then
            for _, line in ipairs(show.wrap(paragraph:gsub("%s+", " "),
                width - #INDENT)) do
                add(lines, line)
            end
        end
        add(lines, "")
    end
end

local function add_section(lines, title, add_content)
    lines[#lines + 1] = title
    add_content()
    if lines[#lines] ~= "" then
        lines[#lines + 1] = ""
    end
end

local function add_block(lines, block)
    for line in block:gmatch("[^\n]+") do
        add(lines, (line:gsub("^   ", "")))
    end
end

local function add_statuses(lines, command)
    for _, row in ipairs(command.statuses or STATUSES) do
        add(lines, row[1] .. "  " .. row[2])
    end
end

-- The parser's own text, of which the sections are made.
local function blocks_of(parser, width)
    parser:description(""):usage_max_width(width - #INDENT)
        :help_max_width(width - #INDENT)
    local help = parser:get_help() .. "\n\n"
    local blocks = { usage = parser:get_usage():gsub("^Usage: ", "") }
    for _, title in ipairs(TITLES) do
        blocks[title] = help:match("\n" .. title .. ":\n(.-)\n\n")
    end
    return blocks
end

--- The help of a command.
---@param command table  As the modules of commands have it, with its parser.
---@param width integer  Longest line, as far as words allow.
---@return string
return function(command, width)
    local blocks = blocks_of(command.parser, width)
    local lines = {}
    add_section(lines, "NAME", function()
        add(lines, ("kzctl %s - %s"):format(command.name, command.summary))
    end)
    add_section(lines, "SYNOPSIS", function()
        add_block(lines, blocks.usage)
    end)
    add_section(lines, "DESCRIPTION", function()
        add_text(lines, command.description, width)
    end)
    for _, title in ipairs(TITLES) do
        if blocks[title] then
            add_section(lines, title:upper(), function()
                add_block(lines, blocks[title])
            end)
        end
    end
    if command.json then
        add_section(lines, "JSON", function()
            add_text(lines, "With --json, each object has: "
                .. table.concat(command.json, " "), width)
        end)
    end
    add_section(lines, "EXIT STATUS", function()
        add_statuses(lines, command)
    end)
    lines[#lines] = nil
    return table.concat(lines, "\n") .. "\n"
end
