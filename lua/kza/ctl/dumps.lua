-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl dumps: the facts in crash dumps that need no debug symbols.

local complain = require("kza.ctl.complain")
local fail = require("kza.ctl.fail")
local host = require("kza.host")
local minidump = require("kza.minidump")
local records = require("kza.ctl.records")
local show = require("kza.ctl.show")

local ORDER = { "file", "time", "version", "signal", "lua" }
local FULL_ORDER = {
    "file", "time", "version", "signal", "lua", "application", "process",
    "thread", "code", "address", "sender", "memory", "system", "processor",
    "command", "registers", "threads", "modules",
}
local INNER_ORDER = {
    "name", "value", "id", "stack", "stack_size", "base", "size", "path",
    "build_id",
}

-- Reads a dump. An incomplete dump is shown as far as possible, with a
-- complaint and status 1.
local function read(path, in_full)
    local facts, message = minidump.read(path, in_full)
    if not facts then
        return nil, message
    end
    facts.file = path
    facts.time = records.iso(facts.time)
    facts.lua = facts.lua and show.array(facts.lua)
    return facts, facts.is_short and path .. ": it is cut short" or nil
end

local function show_stack(facts)
    for _, frame in ipairs(facts.lua or {}) do
        show.row({ { text = "", width = 1 } }, frame)
    end
end

local function show_line(context, facts)
    if context.json then
        show.json(facts, ORDER)
        return
    end
    show.row({ { text = facts.time, width = 25 },
        { text = facts.signal or "?", width = 7 },
        { text = facts.version or "?", width = 11 } }, facts.file)
    show_stack(facts)
end

-- Lists the dumps, oldest first, as all lists of kzctl by time.
local function list(context)
    local names, message = host.list(context.where.dumps)
    if not names then
        if message:find("No such file", 1, true) then
            return 0
        end
        fail("%s", message)
    end
    local status = 0
    for _, path in ipairs({ context.where.dump .. ".1", context.where.dump }) do
        if host.stat(path, true) then
            local facts, problem = read(path)
            if facts then
                show_line(context, facts)
            end
            if problem then
                complain(problem)
                status = 1
            end
        end
    end
    return status
end

local function show_details(facts)
    for _, name in ipairs({ "file", "time", "version", "signal", "application",
        "process", "thread", "code", "address", "sender", "memory", "system",
        "processor", "command" }) do
        show.fact(name, facts[name])
    end
    show.line(facts.lua and #facts.lua == 0 and "lua       not running"
        or "lua")
    show_stack(facts)
    show.line("registers")
    for _, register in ipairs(facts.registers) do
        show.row({ { text = "", width = 1 },
            { text = register.name, width = 4 } }, register.value)
    end
    show.line("threads")
    for _, thread in ipairs(facts.threads) do
        show.row({ { text = "", width = 1 },
            { text = tostring(thread.id), width = 7 } },
            ("stack at %s, %d bytes"):format(thread.stack, thread.stack_size))
    end
    show.line("modules")
    for _, module in ipairs(facts.modules) do
        show.row({ { text = "", width = 1 },
            { text = module.base, width = 14 },
            { text = module.version or "?", width = 11 } },
            ("%s %s"):format(module.path or "?", module.build_id or ""))
    end
end

-- The path of a dump. A name without a slash is a file in the directory of the
-- dumps, unless there is one of that name in the current directory.
local function path_of(context, name)
    local beside = context.where.dumps .. "/" .. name
    if not name:find("/", 1, true) and not host.stat(name)
        and host.stat(beside) then
        return beside
    end
    return name
end

local function details(context)
    local facts, problem = read(path_of(context, context.args.file), true)
    if not facts then
        fail("%s", problem)
    end
    if context.json then
        for _, name in ipairs({ "registers", "threads", "modules" }) do
            show.array(facts[name])
        end
        show.json(facts, FULL_ORDER, INNER_ORDER)
    else
        show_details(facts)
    end
    if problem then
        complain(problem)
    end
    return problem and 1 or 0
end

local function dumps(context)
    return context.args.show and details(context) or list(context)
end

return {
    {
        name = "dumps",
        summary = "crash dumps",
        description = [[
Shows the crash dumps of the agent, the newest last: when, which signal, which
version of the agent, the file, and the Lua stack. 'dumps show FILE' shows all
that a dump says without symbols: process, registers, threads and modules too.
Ends with 1 when a dump cannot be read or is cut short.]],
        define = function(command)
            command:require_command(false)
                :usage("Usage: kzctl dumps [show FILE]")
            command:command("show", "all that a dump says"):add_help(false)
                :argument("file", "a path, or a name among the dumps")
                :argname("FILE")
        end,
        json = ORDER,
        run = dumps,
    },
}
