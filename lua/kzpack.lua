-- SPDX-License-Identifier: Apache-2.0
--
-- kzpack: makes, lists and checks the agent's archives and packages. A tool
-- that the agent runs:
--
--     kz_agent --appname kzpack -- archive widget.kze src

local host = require("kza.host")
local pack = require("kza.pack")
local verify = require("kza.verify")

local USAGE = [[
Usage: kzpack archive [option...] FILE.kze INPUT...
       kzpack plugin [option...] NAME INPUT...
       kzpack removal [option...] NAME INPUT...
       kzpack list FILE
       kzpack verify FILE...

  archive   makes an extension archive and its version file, FILE.kze.version
  plugin    makes a package that installs files beside the agent
  removal   makes a package that removes them
  list      shows what an archive or a package holds
  verify    says whether this agent would accept it, and why not

An INPUT is a directory, whose content goes in, or a file. Hidden files are
left out. The same input always gives the same bytes.

  -c, --compile       put compiled Lua in place of its source
  -s, --strip         compile, and leave out debug information
  -b, --build N       build number (default: that of the agent)
  -o, --output DIR    directory in which a package is put (default: .)
      --system NAME   system that a package is for (default: any)
      --machine NAME  machine that a package is for (default: noarch)
]]

local FAILURE, WRONG_USAGE = 1, 2

local SWITCHES = {
    ["-c"] = "compile", ["--compile"] = "compile",
    ["-s"] = "strip", ["--strip"] = "strip",
    ["-h"] = "help", ["--help"] = "help",
}
local VALUES = {
    ["-b"] = "build", ["--build"] = "build",
    ["-o"] = "output", ["--output"] = "output",
    ["--system"] = "system", ["--machine"] = "machine",
}

local function complain(text, ...)
    io.stderr:write("kzpack: ", text:format(...), "\n")
end

-- Splits the words into options and the rest; nil and a message when an option
-- makes no sense.
local function parse(words)
    local options, rest = {}, {}
    local wanted -- the option whose value comes next
    for _, word in ipairs(words) do
        if wanted then
            options[wanted], wanted = word, nil
        elseif SWITCHES[word] then
            options[SWITCHES[word]] = true
        elseif VALUES[word] then
            wanted = VALUES[word]
        elseif word:find("^%-.") then
            return nil, ("there is no option '%s'"):format(word)
        else
            rest[#rest + 1] = word
        end
    end
    if wanted then
        return nil, ("the last option needs a value")
    end
    return options, rest
end

local function report(result)
    print(("%s: %d entries, %d bytes"):format(
        result.path, result.count, result.size))
    return 0
end

local commands = {}

function commands.archive(options, path, ...)
    return report(pack.archive(path, { ... }, options))
end

function commands.plugin(options, name, ...)
    return report(
        pack.plugin(name, options.output or ".", { ... }, options))
end

function commands.removal(options, name, ...)
    return report(
        pack.removal(name, options.output or ".", { ... }, options))
end

function commands.list(_, path)
    local entries, message = host.entries(path)
    if not entries then
        error(message, 0)
    end
    for _, entry in ipairs(entries) do
        print(("%04o %10d  %s"):format(entry.mode, entry.size, entry.name))
    end
    return 0
end

function commands.verify(_, ...)
    local status = 0
    for _, path in ipairs({ ... }) do
        local problems = verify(path)
        if #problems == 0 then
            print(path .. ": accepted")
        else
            status = FAILURE
        end
        for _, problem in ipairs(problems) do
            print(("%s: refused: %s"):format(path, problem))
        end
    end
    return status
end

-- How many words a command takes, at least and at most.
local COUNTS = {
    archive = { 2, math.huge },
    plugin = { 2, math.huge },
    removal = { 2, math.huge },
    list = { 1, 1 },
    verify = { 1, math.huge },
}

local function usage(message)
    complain("%s; kzpack --help tells more", message)
    return WRONG_USAGE
end

local function main()
    local options, words = parse(arg)
    if not options then
        return usage(words)
    end
    if options.help then
        io.write(USAGE)
        return 0
    end

    local name = table.remove(words, 1)
    local count = COUNTS[name]
    if not count then
        return usage(name and ("there is no command '%s'"):format(name)
            or "a command is needed")
    end
    if #words < count[1] or #words > count[2] then
        return usage(("'%s' takes other words"):format(name))
    end

    local ok, status = pcall(commands[name], options, table.unpack(words))
    if not ok then
        complain("%s", status)
        return FAILURE
    end
    return status
end

return { main = main }
