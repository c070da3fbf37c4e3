-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl packages: shows installed and waiting packages, and the package that a
-- file belongs to.

local fail = require("kza.ctl.fail")
local host = require("kza.host")
local package_list = require("kza.ctl.package_list")
local package_row = require("kza.ctl.package_row")
local settings = require("kza.ctl.settings")
local show = require("kza.ctl.show")

local FILE_ORDER = { "file", "size", "state" }

local COLOURS = { changed = "yellow", missing = "red" }

local function read(context)
    return package_list.read(context.where, settings.trust_of(context.where))
end

local function show_file(context, file)
    if context.json then
        show.json(file, FILE_ORDER)
    else
        show.row(file.state and { { text = file.state, width = 7,
            colour = COLOURS[file.state] } } or {}, file.reason or file.file)
    end
end

local function files_of(context)
    local package = package_list.by_name(read(context), context.args.name)
    local found, message = package_list.files(context.where, package)
    if not found then
        fail("%s", message)
    end
    return found, package
end

local function list(context)
    for _, package in ipairs(read(context)) do
        package_row.show(context, package)
    end
    return 0
end

local function files(context)
    for _, file in ipairs((files_of(context))) do
        show_file(context, file)
    end
    return 0
end

-- Compares the files of an installed package, and checks whether the agent
-- would accept another one.
local function verify(context)
    local package = package_list.by_name(read(context), context.args.name)
    if not package.is_installed then
        package_row.show(context, package)
        return package.state == "waiting" and 0 or 1
    end
    local found, message = package_list.files(context.where, package)
    if not found then
        fail("%s", message)
    end
    local status = 0
    for _, file in ipairs(found) do
        if file.state ~= "same" then
            show_file(context, file)
            status = 1
        end
    end
    if status == 0 and not context.json then
        show.line(("%s: %d files, all as installed"):format(package.file,
            #found))
    end
    return status
end

-- The path, below the agent's directory, of a file that need not exist. A
-- relative path may begin at the current directory or at the agent's.
local function below(where, path)
    local directory, name = path:match("^(.*/)([^/]+)$")
    local real = host.real_path(directory or ".")
    local bin = host.real_path(where.bin) .. "/"
    local whole = real and real .. "/" .. (name or path)
    if whole and whole:sub(1, #bin) == bin then
        return whole:sub(#bin + 1)
    end
    return path
end

local function owner(context)
    local file = context.args.path
    local path = below(context.where, file)
    local owners = package_list.owners(read(context), path)
    for _, package in ipairs(owners) do
        package_row.show(context, package)
    end
    if #owners == 0 then
        fail("no package has '%s'", file)
    end
    return 0
end

local function packages(context)
    local args = context.args
    local run = args.files and files or args.verify and verify
        or args.owner and owner or list
    return run(context)
end

local function define(command)
    command:require_command(false)
        :usage("Usage: kzctl packages [files NAME | verify NAME | owner FILE]")
    command:command("files", "the files of a package"):add_help(false)
        :argument("name", "the plugin, or the package's file"):argname("NAME")
    command:command("verify", "compares a package with what is there")
        :add_help(false)
        :argument("name", "the plugin, or the package's file"):argname("NAME")
    command:command("owner", "which package a file is of"):add_help(false)
        :argument("path", "the file"):argname("FILE")
end

return {
    {
        name = "packages",
        summary = "packages that are installed or wait",
        description = [[
Shows the packages beside the agent, one a line: state, plugin, version, file.

  installed  its files are as they came
  changed    a file of it is missing or differs
  removed    none of its files is there
  waiting    will be applied at the next start with --install_plugins
  refused    waits, but will not be applied, and why

'packages files NAME' lists the files of one, 'packages verify NAME' compares
them with what is there and ends with 1 when one is missing or differs, and
'packages owner FILE' tells which packages a file came with. NAME is that of the
plugin, or of the package's file.]],
        define = define,
        json = package_row.ORDER,
        run = packages,
    },
}
