-- SPDX-License-Identifier: Apache-2.0
--
-- Makes the agent's archives and packages out of directories.
--
-- A failure is raised as an error whose text is meant for the user.

local files = require("kza.files")
local host = require("kza.host")
local strip = require("kza.strip")
local unloadable = require("kza.unloadable")
local zip = require("kza.zip")

local pack = {}

---@class kza.pack.Options
---@field compile? boolean  Put compiled chunks in place of Lua source.
---@field strip? boolean    Leave their debug information out.
---@field build? string     Build number of the archive or package.
---@field system? string    Packages: the system that the package is for.
---@field machine? string   Packages: the machine that the package is for.

local function fail(text, ...)
    error(text:format(...), 0)
end

local function must(value, message)
    if value == nil then
        error(message, 0)
    end
    return value
end

-- Collecting -----------------------------------------------------------------

local function is_hidden(name)
    return ("/" .. name):find("/.", 1, true) ~= nil
end

local function add_file(entries, name, path, mode)
    -- The agent would refuse the name; here the author can still change it.
    if name:find("\\", 1, true) then
        fail("%s: a name in an archive cannot hold a backslash", path)
    end
    if entries[name] then
        fail("%s: '%s' is already in the archive", path, name)
    end
    local entry = {
        name = name,
        path = path,
        bytes = must(files.read(path)),
        executable = mode % 128 >= 64, -- the owner's bit, 0100
    }
    entries[name] = entry
    entries[#entries + 1] = entry
end

local function add_tree(entries, directory)
    for _, found in ipairs(must(files.tree(directory))) do
        local kind = found.info.type
        local wanted = kind ~= "directory" and not is_hidden(found.name)
        if wanted and kind ~= "file" then
            fail("%s: only files can be packed", found.path)
        end
        if wanted then
            add_file(entries, found.name, found.path, found.info.mode)
        end
    end
end

-- Compares by byte: `<` on strings follows the locale.
local function before(a, b)
    for i = 1, math.min(#a, #b) do
        local x, y = a:byte(i), b:byte(i)
        if x ~= y then
            return x < y
        end
    end
    return #a < #b
end

-- All files below the input directories, and the input files under their own
-- names, in an order that depends on the names alone.
local function collect(inputs)
    local entries = {}
    for _, input in ipairs(inputs) do
        local info = must(host.stat(input))
        if info.type == "directory" then
            add_tree(entries, input)
        else
            add_file(entries, input:match("[^/]*$"), input, info.mode)
        end
    end
    if #entries == 0 then
        fail("nothing to pack in %s", table.concat(inputs, ", "))
    end
    table.sort(entries, function(a, b) return before(a.name, b.name) end)
    return entries
end

-- Lua modules ----------------------------------------------------------------

-- The source without a byte-order mark and without a first line that begins
-- with "#"; Lua skips both when it reads a file.
local function source_of(bytes)
    bytes = bytes:gsub("^\239\187\191", "")
    return (bytes:gsub("^#[^\n]*", ""))
end

-- Refuses a module that would not load, and compiles it when the options say
-- so. Error messages of a compiled module name it by the archive, as those of a
-- source module do.
local function prepare_module(entry, archive, options)
    local place = ("@%s/%s"):format(archive, entry.name)
    local chunk, message = load(source_of(entry.bytes), place)
    if not chunk then
        fail("%s: %s", entry.path, message)
    end
    if options.compile or options.strip then
        entry.bytes = string.dump(chunk)
    end
    if options.strip then
        entry.bytes = strip(entry.bytes)
    end
end

-- The bytes of an archive with all inputs, and its entries.
local function archive_of(archive, inputs, options)
    local entries = collect(inputs)
    for _, entry in ipairs(entries) do
        if entry.name:find("%.lua$") then
            prepare_module(entry, archive, options)
        end
    end
    return must(zip.pack(entries)), entries
end

-- Versions and names ---------------------------------------------------------

-- The version that packages and extensions must have been made for, and the
-- agent's own build number.
local function agent_version()
    return dom:Get("app.version"):match("^(%d+%.%d+%.%d+)%.(%d+)$")
end

local function check_word(what, word)
    if not word:find("^[%w_]+$") then
        fail("the %s '%s' may only hold letters, digits and '_'", what, word)
    end
    return word
end

local function check_build(build)
    if not build:find("^%d+$") then
        fail("the build number '%s' is not a number", build)
    end
    return build
end

--- The file name of a package for this agent, without its extension.
---@param plugin string
---@param options kza.pack.Options
---@return string
function pack.package_name(plugin, options)
    local version, build = agent_version()
    return ("Plugin-%s-%s-%s-%s.%s"):format(
        check_word("plugin's name", plugin),
        check_word("system", options.system or "any"),
        version,
        check_build(options.build or build),
        check_word("machine", options.machine or "noarch"))
end

-- Making ---------------------------------------------------------------------

---@class kza.pack.Result
---@field path string
---@field count number  Number of entries.
---@field size number   Bytes.
---@field warnings? string[]  About files that can never be loaded.

local function write(path, bytes, entries)
    must(files.write(path, bytes))
    return { path = path, count = #entries, size = #bytes }
end

local function names_of(entries)
    local names = {}
    for i, entry in ipairs(entries) do
        names[i] = entry.name
    end
    return names
end

--- Makes an extension archive and its version side file beside it.
---@param path string
---@param inputs string[]  Directories, whose content is packed, and files.
---@param options kza.pack.Options
---@return kza.pack.Result
function pack.archive(path, inputs, options)
    if not path:find("%.kze$") then
        fail("%s: the name of an archive ends with .kze", path)
    end
    local version, build = agent_version()
    local side = ("version: %s-%s\n"):format(
        version, check_build(options.build or build))
    local bytes, entries = archive_of(path:match("[^/]*$"), inputs, options)
    local result = write(path, bytes, entries)
    must(files.write(path .. ".version", side))
    result.warnings = unloadable(names_of(entries))
    return result
end

--- Makes a plugin package: its files are installed beside the agent.
---@param plugin string     The plugin's short name.
---@param directory string  Directory of the new package.
---@param inputs string[]
---@param options kza.pack.Options
---@return kza.pack.Result
function pack.plugin(plugin, directory, inputs, options)
    local name = pack.package_name(plugin, options) .. ".kzp"
    local bytes, entries = archive_of(name, inputs, options)
    return write(files.join(directory, name), bytes, entries)
end

--- Makes a removal package: the files with the names of the inputs' files are
--- removed beside the agent. The package contains only the names.
---@param plugin string
---@param directory string
---@param inputs string[]
---@param options kza.pack.Options
---@return kza.pack.Result
function pack.removal(plugin, directory, inputs, options)
    local name = pack.package_name(plugin, options) .. ".kzu"
    local entries = {}
    for i, entry in ipairs(collect(inputs)) do
        entries[i] = { name = entry.name }
    end
    local bytes = must(zip.pack(entries))
    return write(files.join(directory, name), bytes, entries)
end

return pack
