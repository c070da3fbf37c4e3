-- SPDX-License-Identifier: Apache-2.0
--
-- describe: makes man pages and completion for bash out of what the programs
-- themselves say. A tool that the agent runs at build time:
--
--     kz_agent --appname describe -- man INPUT OUTPUT
--     kz_agent --appname describe -- complete PROGRAM OUTPUT
--
-- An input is a man page; the name of the program is its file name without the
-- section. Lines of their own stand for what comes from the program:
--
--     @HELP@       what its --help prints
--     @HELPS@      what the --help of each command for a directory prints
--     @OPTIONS@    the options of all its commands
--     @COMMANDS@   its commands with their options

local argparse = require("argparse")

local function read(path)
    local file = assert(io.open(path, "rb"))
    local text = file:read("*a")
    file:close()
    return text
end

local function write(path, text)
    local file = assert(io.open(path, "wb"))
    assert(file:write(text))
    assert(file:close())
end

-- What the programs say ------------------------------------------------------

-- The help of a tool, or of what the words name, printed by it in an agent of
-- its own.
local function help_of(program, words)
    local command = ("exec '%s' --appname %s --workdir '%s' --lua_path '%s' "
        .. "-- %s --help"):format(dom:Get("app.path.exe"), program,
        dom:Get("app.path.work"), dom:Get("app.lua.path"), words or "")
    local pipe = assert(io.popen(command))
    local text = pipe:read("*a")
    assert(pipe:close(), program .. " --help has failed")
    return text
end

-- The agent's own options, in the words of its usage text.
local function agent_parser()
    local command = ("'%s' --help 2>&1"):format(dom:Get("app.path.exe"))
    local pipe = assert(io.popen(command))
    local parser = argparse("kz_agent"):add_help(false)
    for line in pipe:lines() do
        local short, long, value =
            line:match("^  (%-?%a?),? ?(%-%-[%w_]+)(=?)")
        if long then
            local names = (short .. " " .. long):gsub("^ ", "")
            local option = value == "=" and parser:option(names)
                or parser:flag(names)
            -- argparse would offer "-" in the place of "_" too.
            option._aliases = option._public_aliases
        end
    end
    pipe:close()
    return parser
end

local function parser_of(program)
    if program == "kz_agent" then
        return agent_parser()
    end
    return require(program).parser()
end

-- Man pages ------------------------------------------------------------------

local function escaped(text)
    return (text:gsub("\\", "\\e"):gsub("%-", "\\-")
        :gsub("^([.'])", "\\&%1"):gsub("\n([.'])", "\n\\&%1"))
end

local function option_lines(lines, options)
    for _, option in ipairs(options) do
        lines[#lines + 1] = ".TP"
        lines[#lines + 1] = ".B " .. escaped(option:_get_label_lines()[1])
        lines[#lines + 1] = escaped(option._description or "")
    end
end

local function usage_of(command)
    local usage = command:get_usage():gsub("%s+", " ")
    return (usage:gsub("^Usage: ", ""))
end

local function command_lines(lines, command)
    lines[#lines + 1] = ".SS " .. command._name
    lines[#lines + 1] = ".B " .. escaped(usage_of(command))
    lines[#lines + 1] = ".PP"
    lines[#lines + 1] = escaped(command._description or "")
    option_lines(lines, command._options)
    for _, part in ipairs(command._commands) do
        lines[#lines + 1] = ".TP"
        lines[#lines + 1] = ".B " .. escaped(part:get_usage()
            :gsub("^Usage: ", ""))
        lines[#lines + 1] = escaped(part._description or "")
    end
end

local PARTS = {}

function PARTS.HELP(program)
    return escaped((help_of(program):gsub("\n$", "")))
end

function PARTS.HELPS(program)
    local lines = {}
    for _, command in ipairs(parser_of(program)._commands) do
        lines[#lines + 1] = ".SS " .. command._name
        lines[#lines + 1] = ".nf"
        lines[#lines + 1] =
            escaped(help_of(program, ". " .. command._name)) .. ".fi"
    end
    return table.concat(lines, "\n")
end

function PARTS.OPTIONS(program)
    local lines = {}
    option_lines(lines, parser_of(program)._options)
    return table.concat(lines, "\n")
end

function PARTS.COMMANDS(program)
    local lines = {}
    for _, command in ipairs(parser_of(program)._commands) do
        command_lines(lines, command)
    end
    return table.concat(lines, "\n")
end

-- The commands ---------------------------------------------------------------

local commands = {}

function commands.man(input, output)
    local program = input:match("([^/]+)%.%d$")
    local page = read(input):gsub("@VERSION@", dom:Get("app.version"))
    page = page:gsub("\n@(%u+)@", function(part)
        return "\n" .. PARTS[part](program)
    end)
    write(output, page)
end

local function by_name(one, other)
    return one._name < other._name
end

-- Sorted: some parsers take their words from tables, which have another order
-- in each process.
function commands.complete(program, output)
    local parser = parser_of(program)
    table.sort(parser._options, by_name)
    table.sort(parser._commands, by_name)
    write(output, parser:get_bash_complete())
end

return { main = function() commands[arg[1]](arg[2], arg[3]) end }
