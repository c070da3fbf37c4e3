-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl: shows operators the state of a service, and controls it. The agent
-- runs this tool in a process of its own, whether the service runs or not:
--
--     kz_agent --appname kzctl -- status

local argparse = require("argparse")
local complain = require("kza.ctl.complain")
local help = require("kza.ctl.help")
local host = require("kza.host")
local place = require("kza.ctl.place")

local FAILURE, WRONG_USAGE = 1, 2

-- Modules of related commands.
local MODULES = { "status", "start_stop", "log", "events", "packages",
    "install", "check", "dumps", "keys", "trace", "heartbeat", "version" }

-- Options that every command takes, before or after its name.
local function add_options(parser)
    parser:option("--appname", "name of the agent's application")
        :argname("NAME")
    parser:option("--workdir", "its working directory"):argname("DIR")
    parser:flag("--json", "print JSON, one object a line")
end

local function new_parser()
    local parser = argparse("kzctl")
        :description("Shows what a kz_agent service does, and controls it.")
        :epilog("kzctl help COMMAND tells more of one. The agent is 'kz_agent' "
            .. "unless --appname or KZ_APPNAME names another; its working "
            .. "directory that of --workdir or KZ_WORKDIR, or the usual one.")
        :require_command(false)
        :add_help(false)
        :help_max_width(80)
        :usage_max_width(80)
        :command_target("command")
    add_options(parser)
    parser:flag("-h --help", "show this help"):target("help")
    return parser
end

-- The parser of all commands, and the commands by name.
local function build()
    local parser = new_parser()
    local commands = {}
    for _, module in ipairs(MODULES) do
        for _, command in ipairs(require("kza.ctl." .. module)) do
            commands[command.name] = command
            command.parser = parser:command(command.name, command.summary)
                :add_help(false):help_max_width(80):usage_max_width(80)
            if command.define then
                command.define(command.parser)
            end
        end
    end
    parser:command("help", "tells more of a command"):add_help(false)
        :argument("topic", "the command"):args("?"):argname("COMMAND")
    return parser, commands
end

-- Help is as wide as a terminal, between what words need and what is readable.
local function help_width()
    return math.max(40, math.min(host.columns(1) or 80, 80))
end

local function print_help(parser, command)
    local width = help_width()
    if command then
        io.write(help(command, width))
    else
        parser:help_max_width(width):usage_max_width(width)
        io.write(parser:get_help(), "\n")
    end
end

-- Patterns of words that begin with "-" and are no options, by the command that
-- takes them: such words are moved behind "--".
local NO_OPTION = { trace = "^%-[^-]", set = "^%-%d" }

local function shield(words)
    local shielded, behind, pattern = {}, {}, nil
    for _, word in ipairs(words) do
        local list = pattern and word:find(pattern) and behind or shielded
        list[#list + 1] = word
        pattern = pattern or NO_OPTION[word]
    end
    if #behind > 0 then
        shielded[#shielded + 1] = "--"
        shielded[#shielded + 1] = table.concat(behind, " ")
    end
    return shielded
end

-- Whether the words ask for help, even when required words are missing; and for
-- which command.
local function asks_for_help(words, commands)
    local asked, topic = false, nil
    for _, word in ipairs(words) do
        if word == "--" then
            break
        end
        asked = asked or word == "-h" or word == "--help"
        topic = topic or commands[word]
    end
    return asked, topic
end

local function usage(message)
    complain(message .. "; kzctl help tells more")
    return WRONG_USAGE
end

local function run(command, args)
    local context = { args = args, json = args.json == true,
        where = place.find(args) }
    local ok, result = pcall(command.run, context)
    if ok then
        return result
    end
    if type(result) == "table" then
        complain(result.message)
        return result.status
    end
    complain(tostring(result))
    return FAILURE
end

local function status_of(words)
    local parser, commands = build()
    local asked, topic = asks_for_help(words, commands)
    if asked then
        print_help(parser, topic)
        return 0
    end
    local ok, args = parser:pparse(shield(words))
    if not ok then
        return usage(args)
    end
    if args.command == "help" then
        if args.topic and not commands[args.topic] then
            return usage(("there is no command '%s'"):format(args.topic))
        end
        print_help(parser, commands[args.topic])
        return 0
    end
    if not args.command then
        return usage("a command is needed")
    end
    return run(commands[args.command], args)
end

local function main()
    local status = status_of(arg)
    if status ~= 0 then
        -- Returning the status would add an empty line to the complaint: the
        -- agent writes the report of a Lua error, which is empty here.
        os.exit(status)
    end
end

-- The parser with all that it can say, for man page and completion.
local function parser()
    local built, commands = build()
    for _, command in pairs(commands) do
        command.parser:description(command.description)
    end
    return built
end

return { main = main, parser = parser }
