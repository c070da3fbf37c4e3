-- SPDX-License-Identifier: Apache-2.0
--
-- The packages beside an agent: installed ones with the state of their files,
-- and waiting ones.

local fail = require("kza.ctl.fail")
local files = require("kza.files")
local host = require("kza.host")
local package_name = require("kza.package_name")
local verify = require("kza.verify")

local package_list = {}

local PIECE = 256 * 1024

--- A package.
---@class kza.ctl.Package
---@field name string       Of the plugin.
---@field full_name string  Of the file, without an extension.
---@field version? string
---@field state "installed"|"changed"|"removed"|"waiting"|"refused"
---@field file string       Name of the file.
---@field path string
---@field time number       The time since which the file has this name.
---@field files? integer    Number of its files, when it can be read.
---@field reason? string    For the states `changed` and `refused`.
---@field signed_by? string  Name of the key.
---@field is_installed boolean  The file was renamed by its installation.

-- The extension of each kind of file, and the agent's use of the kind.
local KINDS = {
    { pattern = "^([^.].*)%.kzp%.done$", is_installed = true },
    { pattern = "^([^.].*)%.kzp$" },
    { pattern = "^([^.].*)%.kzu$" },
}

-- Files on the host ----------------------------------------------------------

local function checksum(path)
    local file, message = io.open(path, "rb")
    if not file then
        return nil, message
    end
    local crc = 0
    for piece in function() return file:read(PIECE) end do
        crc = host.crc32(piece, crc)
    end
    file:close()
    return crc
end

-- Compares the file in the place of an entry: "same", "changed" or "missing",
-- and the reason when the file cannot be compared.
local function compare(path, entry)
    local stat, message = host.stat(path)
    if not stat then
        if message:find("No such file", 1, true)
            or message:find("Not a directory", 1, true) then
            return "missing"
        end
        return "changed", message
    end
    if stat.type ~= "file" or stat.size ~= entry.size then
        return "changed"
    end
    local crc, reason = checksum(path)
    return crc == entry.crc and "same" or "changed", reason
end

-- The files of an archive, by their names beside the agent.
local function files_in(path)
    local entries, message = host.entries(path)
    if not entries then
        return nil, message
    end
    local found = {}
    for _, entry in ipairs(entries) do
        if entry.name:sub(-1) ~= "/" then
            while entry.name:sub(1, 2) == "./" do
                entry.name = entry.name:sub(3)
            end
            found[#found + 1] = entry
        end
    end
    return found
end

--- A file of a package.
---@class kza.ctl.PackageFile
---@field file string   Path below the agent's directory.
---@field size integer
---@field state? "same"|"changed"|"missing"  For an installed package.
---@field reason? string  The reason when the file cannot be compared.

--- The files of a package. For an installed one, they are compared with the
--- files beside the agent.
---@param where kza.ctl.Place
---@param package kza.ctl.Package
---@return kza.ctl.PackageFile[]? files
---@return string? message
function package_list.files(where, package)
    local entries, message = files_in(package.path)
    if not entries then
        return nil, message
    end
    local found = {}
    for i, entry in ipairs(entries) do
        local state, reason
        if package.is_installed then
            state, reason = compare(files.join(where.bin, entry.name), entry)
        end
        found[i] = { file = entry.name, size = entry.size, state = state,
            reason = reason }
    end
    return found
end

-- States ---------------------------------------------------------------------

local function describe(file)
    return file.reason or ("%s %s"):format(file.file,
        file.state == "missing" and "is missing" or "differs")
end

local function judge_installed(package, found)
    local same, missing, first, others = 0, 0, nil, -1
    for _, file in ipairs(found) do
        if file.state == "same" then
            same = same + 1
        else
            first, others = first or file, others + 1
            missing = missing + (file.state == "missing" and 1 or 0)
        end
    end
    if same == #found then
        package.state = "installed"
    elseif missing == #found then
        package.state = "removed"
    else
        package.state = "changed"
        package.reason = describe(first)
            .. (others > 0 and (" and %d more"):format(others) or "")
    end
end

local function problems_of(path, trust)
    local changeable = trust.is_strict and host.changeable(path) or {}
    return #changeable > 0 and changeable or verify(path, trust.keys)
end

-- The signature and name of a waiting package are checked before its content is
-- read, because the agent does not read the content of a package that it
-- refuses.
local function judge_waiting(package, trust)
    local problems = problems_of(package.path, trust)
    package.state = #problems == 0 and "waiting" or "refused"
    package.reason = problems[1]
end

local function look_into(where, package, trust)
    if not package.is_installed then
        judge_waiting(package, trust)
    end
    if package.state ~= "refused" then
        local found, message = package_list.files(where, package)
        package.files = found and #found
        if package.is_installed and found then
            judge_installed(package, found)
        elseif package.is_installed then
            package.state, package.reason = "changed", message
        end
    end
    package.signed_by = trust.keys and trust.keys:signer(package.path)
    return package
end

local function facts_of(where, name)
    for _, kind in ipairs(KINDS) do
        local full_name = name:match(kind.pattern)
        local path = full_name and files.join(where.bin, name)
        local stat = full_name and host.stat(path, true)
        if stat and files.is_directory(path) then
            stat = nil
        end
        if stat then
            return {
                name = package_name.plugin(full_name),
                full_name = full_name,
                version = package_name.version(full_name),
                file = name,
                path = path,
                time = stat.changed,
                is_installed = kind.is_installed == true,
            }
        end
    end
end

--- The package in a file beside the agent; nil when the file is none.
---@param where kza.ctl.Place
---@param name string  Of the file.
---@param trust kza.ctl.Trust
---@return kza.ctl.Package?
function package_list.find(where, name, trust)
    local package = facts_of(where, name)
    return package and look_into(where, package, trust)
end

--- The packages, sorted by their files' names.
---@param where kza.ctl.Place
---@param trust kza.ctl.Trust
---@return kza.ctl.Package[]
function package_list.read(where, trust)
    local names, message = host.list(where.bin)
    if not names then
        fail("%s", message)
    end
    local found = {}
    for _, name in ipairs(names) do
        found[#found + 1] = package_list.find(where, name, trust)
    end
    return found
end

-- By name --------------------------------------------------------------------

local function goes_by(package, name)
    return package.name == name or package.full_name == name
        or package.file == name
end

local function full_names(packages)
    local names = {}
    for i, package in ipairs(packages) do
        names[i] = package.file
    end
    return table.concat(names, ", ")
end

--- The package with a name, which may be the plugin's, or the file's with or
--- without extensions. A name of several packages is a failure, unless all but
--- one of them have been removed.
---@param packages kza.ctl.Package[]
---@param name string
---@return kza.ctl.Package
function package_list.by_name(packages, name)
    local fitting, present = {}, {}
    for _, package in ipairs(packages) do
        if package.file == name then
            return package
        end
        if goes_by(package, name) then
            fitting[#fitting + 1] = package
            if package.state ~= "removed" then
                present[#present + 1] = package
            end
        end
    end
    if #fitting == 0 then
        fail("there is no package '%s'", name)
    end
    if #present > 1 or (#present == 0 and #fitting > 1) then
        fail("'%s' is several packages, name one of them: %s", name,
            full_names(#present > 1 and present or fitting))
    end
    return present[1] or fitting[1]
end

--- The packages that contain a file, by its path below the agent's directory.
---@param packages kza.ctl.Package[]
---@param file string
---@return kza.ctl.Package[]
function package_list.owners(packages, file)
    local found = {}
    for _, package in ipairs(packages) do
        for _, entry in ipairs(package.is_installed
            and files_in(package.path) or {}) do
            if entry.name == file then
                found[#found + 1] = package
                break
            end
        end
    end
    return found
end

return package_list
