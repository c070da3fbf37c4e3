-- SPDX-License-Identifier: Apache-2.0
--
-- kzpack: makes, lists and checks the agent's archives and packages. The agent
-- runs this tool:
--
--     kz_agent --appname kzpack -- archive widget.kze src

local argparse = require("argparse")
local host = require("kza.host")
local pack = require("kza.pack")
local sign = require("kza.sign")
local verify = require("kza.verify")

local USAGE = [[
Usage: kzpack archive [option...] FILE.kze INPUT...
       kzpack plugin [option...] NAME INPUT...
       kzpack removal [option...] NAME INPUT...
       kzpack list FILE
       kzpack verify [--keys DIR] FILE...
       kzpack keygen NAME
       kzpack sign --key FILE PACKAGE...

  archive   makes an extension archive and its version file, FILE.kze.version
  plugin    makes a package that installs files beside the agent
  removal   makes a package that removes them
  list      shows what an archive or a package holds
  verify    says whether this agent would accept it, and why not
  keygen    makes a key: NAME.key to sign with, NAME.pem for the hosts
  sign      signs packages: the signature of PACKAGE is in PACKAGE.sig

An INPUT is a directory, whose content goes in, or a file. Hidden files are
left out. The same input always gives the same bytes.

  -c, --compile       put compiled Lua in place of its source
  -s, --strip         compile, and leave out debug information
  -b, --build N       build number (default: that of the agent)
  -o, --output DIR    directory in which a package is put (default: .)
      --system NAME   system that a package is for (default: any)
      --machine NAME  machine that a package is for (default: noarch)
      --key FILE      private key, in PEM
      --keys DIR      public keys, one of which a package must be signed by
]]

local FAILURE, WRONG_USAGE = 1, 2

local function complain(text, ...)
    io.stderr:write("kzpack: ", text:format(...), "\n")
end

-- The commands ---------------------------------------------------------------

-- Each command gets the values of the command line, by the names in WORDS
-- below, and returns the exit status.
local commands = {}

local function report(result)
    for _, text in ipairs(result.warnings or {}) do
        complain("warning: %s", text)
    end
    print(("%s: %d entries, %d bytes"):format(
        result.path, result.count, result.size))
    return 0
end

function commands.archive(line)
    return report(pack.archive(line.file, line.inputs, line))
end

function commands.plugin(line)
    return report(
        pack.plugin(line.name, line.output or ".", line.inputs, line))
end

function commands.removal(line)
    return report(
        pack.removal(line.name, line.output or ".", line.inputs, line))
end

function commands.list(line)
    local entries, message = host.entries(line.file)
    if not entries then
        error(message, 0)
    end
    for _, entry in ipairs(entries) do
        print(("%04o %10d  %s"):format(entry.mode, entry.size, entry.name))
    end
    return 0
end

-- The problems of a file, and the name of the key that signed it. As for the
-- agent, what is in a package does not matter before its signature is good.
local function judge(path, signer_of)
    local signer
    if signer_of and path:find("%.kz[pu]$") then
        local message
        signer, message = signer_of(path)
        if not signer then
            return { message }
        end
    end
    return verify(path), signer
end

function commands.verify(line)
    local signer_of, warnings
    if line.keys then
        signer_of, warnings = sign.read_keys(line.keys)
        for _, text in ipairs(warnings) do
            complain("warning: %s", text)
        end
    end
    local status = 0
    for _, path in ipairs(line.files) do
        local problems, signer = judge(path, signer_of)
        if #problems == 0 then
            print(path .. ": accepted"
                .. (signer and (", signed by '%s'"):format(signer) or ""))
        else
            status = FAILURE
        end
        for _, problem in ipairs(problems) do
            print(("%s: refused: %s"):format(path, problem))
        end
    end
    return status
end

function commands.keygen(line)
    for _, path in ipairs(sign.keygen(line.name)) do
        print(path)
    end
    return 0
end

function commands.sign(line)
    for _, path in ipairs(line.files) do
        print(sign.sign(path, line.key))
    end
    return 0
end

-- The command line -----------------------------------------------------------

-- The words of each command: a name, and "+" for one or more.
local WORDS = {
    archive = { { "file" }, { "inputs", "+" } },
    plugin = { { "name" }, { "inputs", "+" } },
    removal = { { "name" }, { "inputs", "+" } },
    list = { { "file" } },
    verify = { { "files", "+" } },
    keygen = { { "name" } },
    sign = { { "files", "+" } },
}

-- Returns the parser and a table of its commands' names by their parsers.
local function new_parser()
    local parser = argparse("kzpack"):add_help(false):command_target("command")
    parser:flag("-c --compile")
    parser:flag("-s --strip")
    parser:option("-b --build")
    parser:option("-o --output")
    parser:option("--system")
    parser:option("--machine")
    parser:option("--key")
    parser:option("--keys")

    local names = {}
    for name, words in pairs(WORDS) do
        local command = parser:command(name):add_help(false)
        for _, word in ipairs(words) do
            command:argument(word[1]):args(word[2] or 1)
        end
        names[command] = name
    end
    return parser, names
end

-- The message of this tool for a complaint of the parser.
local function in_own_words(complaint, command, last_word)
    local unknown = complaint:match("^unknown option '([^\n]*)'")
    if unknown then
        return ("there is no option '%s'"):format(unknown)
    end
    local bare = complaint:match("^option '([^\n]*)' requires an argument$")
    if bare then
        return bare == last_word and "the last option needs a value"
            or ("option '%s' needs a value"):format(bare)
    end
    unknown = complaint:match("^unknown command '([^\n]*)'")
    if unknown then
        return ("there is no command '%s'"):format(unknown)
    end
    if complaint == "a command is required" then
        return "a command is needed"
    end
    if complaint:find("^missing argument ") or complaint:find("^argument ")
        or complaint == "too many arguments" then
        return ("'%s' takes other words"):format(command)
    end
    return complaint
end

-- The values of the words, by name; nil and a message when the words are wrong.
local function parse(words)
    local parser, names = new_parser()
    local help_wanted, message = false, nil
    parser:flag("-h --help"):action(function() help_wanted = true end)
    function parser.error(current, complaint)
        message = in_own_words(complaint, names[current], words[#words])
        error(message, 0)
    end

    local ok, result = pcall(parser.parse, parser, words)
    if help_wanted then
        return { command = "help" }
    end
    if not ok and not message then
        error(result, 0)
    end
    if ok and result.command == "sign" and not result.key then
        return nil, "'sign' needs --key FILE"
    end
    return ok and result or nil, message
end

function commands.help()
    io.write(USAGE)
    return 0
end

local function main()
    local line, message = parse(arg)
    if not line then
        complain("%s; kzpack --help tells more", message)
        return WRONG_USAGE
    end
    local ok, status = pcall(commands[line.command], line)
    if not ok then
        complain("%s", status)
        return FAILURE
    end
    return status
end

return { main = main, parser = new_parser }
