-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun: runs, tests, measures and packs a project, which it knows by its
-- shape. A tool that the agent runs:
--
--     kz_agent --appname kzrun -- spool test

local argparse = require("argparse")
local complain = require("kza.run.complain")

local FAILURE, WRONG_USAGE = 1, 2

-- The commands, in the order of the help. The first runs when none is named.
local NAMES = { "run", "test", "profile" }

local function seconds(text)
    local number = tonumber(text)
    if not number or number < 0 or number ~= number then
        return nil, ("'%s' is no time in seconds"):format(text)
    end
    return number
end

local function period(text)
    local number = seconds(text)
    if not number or number == 0 then
        return nil, ("'%s' is no time in seconds"):format(text)
    end
    return number
end

local function percent(text)
    local number = tonumber(text)
    if not number or not (number >= 0 and number <= 100) then
        return nil, ("'%s' is no percentage"):format(text)
    end
    return number
end

-- The options of all commands: how the parser has it, what help says, and for
-- one with a value its name there and what makes it out of the text.
local OPTIONS = {
    app = { "--app", "the application's module, when it is not named like DIR",
        value = "NAME" },
    watch = { "--watch", "start again after each change of the project" },
    junit = { "--junit", "write the results to a file, as JUnit does",
        value = "FILE" },
    tap = { "--tap", "write nothing but TAP to standard output" },
    timeout = { "--timeout", "how long a test may take (60; 0: for ever)",
        value = "S", convert = seconds },
    coverage = { "--coverage", "tell which lines ran, in DIR/lcov.info too" },
    min = { "--min", "fail when less of the lines ran", value = "PERCENT",
        convert = percent },
    seconds = { "--seconds", "end the application after this time",
        value = "S", convert = period },
}

local function load_commands()
    local commands = {}
    for _, name in ipairs(NAMES) do
        commands[name] = require("kza.run." .. name)
    end
    return commands
end

-- The command line -----------------------------------------------------------

local function add_option(parser, name)
    local option = OPTIONS[name]
    if not option.value then
        parser:flag(option[1]):target(name)
        return
    end
    local added = parser:option(option[1]):argname(option.value):target(name)
    if option.convert then
        added:convert(option.convert)
    end
end

local function new_parser()
    local parser = argparse("kzrun"):add_help(false)
    for name in pairs(OPTIONS) do
        add_option(parser, name)
    end
    parser:flag("-h --help"):target("help")
    parser:argument("plain"):args("*")
    return parser
end

-- The words before the first "--" and those after it.
local function split(words)
    local before, after = {}, nil
    for _, word in ipairs(words) do
        if after then
            after[#after + 1] = word
        elseif word == "--" then
            after = {}
        else
            before[#before + 1] = word
        end
    end
    return before, after
end

-- Which command the plain words name, and how many of them do that. The name
-- stands after the directory; only `new` has none before it.
local function command_of(plain)
    if plain[1] == "new" then
        return "new", 1
    end
    return plain[2] or NAMES[1], math.min(#plain, 2)
end

local function takes(command, name)
    for _, known in ipairs(command.options or {}) do
        if known == name then
            return true
        end
    end
    return false
end

-- What is wrong with the words for a command, if anything.
local function objection(name, command, line, rest)
    for option in pairs(OPTIONS) do
        if line[option] and not takes(command, option) then
            return ("'%s' has no option '%s'"):format(name, OPTIONS[option][1])
        end
    end
    if line.words and not command.takes_words then
        return ("'%s' takes no words after '--'"):format(name)
    end
    local least, most = command.least or 0, command.most or 0
    if #rest < least or #rest > most then
        return #rest < least and ("'%s' needs another word"):format(name)
            or ("'%s' does not take '%s'"):format(name, rest[most + 1])
    end
    return command.check and command.check(line, rest)
end

--- What a command line means.
---@class kza.run.Line
---@field command string
---@field dir? string      The project's directory; none for `new`.
---@field rest string[]    Plain words after the command's name.
---@field words string[]   Those after "--".

-- Answers nil and a message when the words make no sense.
local function parse(words, commands)
    local before, after = split(words)
    local ok, line = new_parser():pparse(before)
    if not ok then
        return nil, line
    end
    line.words = after
    local name, used = command_of(line.plain)
    if line.help then
        return { command = "help", topic = commands[name] and used > 1 and name
            or name == "new" and name or nil }
    end
    if #line.plain == 0 then
        return nil, "a directory is needed"
    end
    if not commands[name] then
        return nil, ("there is no command '%s'"):format(name)
    end
    line.rest = { table.unpack(line.plain, used + 1) }
    local message = objection(name, commands[name], line, line.rest)
    if message then
        return nil, message
    end
    line.command, line.words = name, after or {}
    line.dir = name ~= "new" and line.plain[1] or nil
    return line
end

-- Help -----------------------------------------------------------------------

local function print_options(names)
    for _, name in ipairs(names) do
        local option = OPTIONS[name]
        print(("  %-20s %s"):format(
            option[1] .. (option.value and " " .. option.value or ""),
            option[2]))
    end
end

local function print_help(commands, topic)
    if topic then
        local command = commands[topic]
        print("Usage: kzrun [OPTION...] " .. command.usage .. "\n")
        print(command.description .. "\n")
        print_options(command.options or {})
        return
    end
    for i, name in ipairs(NAMES) do
        print((i == 1 and "Usage: " or "       ") .. "kzrun [OPTION...] "
            .. commands[name].usage)
    end
    print()
    for _, name in ipairs(NAMES) do
        print(("  %-9s %s"):format(name, commands[name].summary))
    end
    print("\nDIR is a project: modules in DIR/src, one of them named like DIR; "
        .. "tests in\nDIR/tests/*_test.lua; data files in DIR/data; C modules "
        .. "in DIR/lib; settings in\nDIR/kz_agent.ini. Options stand anywhere "
        .. "before '--'. kzrun DIR COMMAND --help\ntells more of a command.")
end

-- Running --------------------------------------------------------------------

local function status_of(words)
    local commands = load_commands()
    local line, message = parse(words, commands)
    if not line then
        complain("%s; kzrun --help tells more", message)
        return WRONG_USAGE
    end
    if line.command == "help" then
        print_help(commands, line.topic)
        return 0
    end
    local ok, result = pcall(commands[line.command].run, line)
    if ok then
        return result
    end
    complain("%s", type(result) == "table" and result.message or result)
    return FAILURE
end

local function main()
    os.setlocale("C", "numeric") -- for numbers in options and files
    local status = status_of(arg)
    if status ~= 0 then
        -- To return it would add an empty line: the agent writes the report of
        -- an error there that did not happen.
        os.exit(status)
    end
end

-- The options and the names of the commands, for completion.
local function parser()
    local built = new_parser()
    for _, name in ipairs(NAMES) do
        built:command(name):add_help(false)
    end
    return built
end

return { main = main, parser = parser }
