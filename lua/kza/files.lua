-- SPDX-License-Identifier: Apache-2.0
--
-- Functions on files for the shipped tools: reading and writing whole files,
-- listing trees, and wildcards.
--
-- Every function returns nil and a message when it fails, as io.open does.
-- Names are sorted by byte and not by the locale, so the order is the same on
-- every host.

local host = require("kza.host")

local files = {}

--- The bytes of a file.
---@param path string
---@return string? bytes
---@return string? message
function files.read(path)
    local file, message = io.open(path, "rb")
    if not file then
        return nil, message
    end
    local bytes, reason = file:read("*a")
    file:close()
    if not bytes then
        return nil, path .. ": " .. reason
    end
    return bytes
end

--- The lines of a text, without their ends.
---@param text string
---@return string[] lines
function files.lines(text)
    local lines = {}
    for line in (text .. "\n"):gmatch("([^\n]*)\n") do
        lines[#lines + 1] = line
    end
    return lines
end

--- Puts a file with these bytes in the place of a path, so that a reader finds
--- either the old content or the new, whole.
---@param path string
---@param bytes string
---@return true? written
---@return string? message
function files.write(path, bytes)
    return host.write(path, bytes)
end

--- True when the path leads to a directory, through symbolic links too.
---@param path string
---@return boolean
function files.is_directory(path)
    local info = host.stat(path)
    return info ~= nil and info.type == "directory"
end

--- A path below a directory; an empty directory name gives the name alone.
---@param directory string
---@param name string
---@return string
function files.join(directory, name)
    if directory == "" or directory:sub(-1) == "/" then
        return directory .. name
    end
    return directory .. "/" .. name
end

-- A wildcard as a Lua pattern. A `?` is one UTF-8 character, not one byte.
local function name_pattern(wildcard)
    local pattern = wildcard:gsub("[%^%$%(%)%%%.%[%]%+%-]", "%%%0")
    pattern = pattern:gsub("%*", ".*"):gsub("%?", "[^\128-\191][\128-\191]*")
    return "^" .. pattern .. "$"
end

-- The paths made of one of `bases` and a name that matches the wildcard. As in
-- a shell, a name with a leading dot needs a wildcard with one.
local function matches_below(bases, wildcard)
    local pattern = name_pattern(wildcard)
    local hidden_too = wildcard:sub(1, 1) == "."
    local found = {}
    for _, base in ipairs(bases) do
        for _, name in ipairs(host.list(base == "" and "." or base) or {}) do
            local visible = hidden_too or name:sub(1, 1) ~= "."
            if visible and name:find(pattern) then
                found[#found + 1] = files.join(base, name)
            end
        end
    end
    return found
end

local function existing_below(bases, name)
    local found = {}
    for _, base in ipairs(bases) do
        local path = files.join(base, name)
        if host.stat(path) then
            found[#found + 1] = path
        end
    end
    return found
end

--- The existing paths, sorted, that match a path in which `*` stands for any
--- characters of a name and `?` for one, in any component. A path without
--- wildcards gives itself when it exists. A directory that cannot be listed
--- gives no match.
---@param pattern string
---@return string[] paths
function files.glob(pattern)
    local paths = { pattern:sub(1, 1) == "/" and "/" or "" }
    for name in pattern:gmatch("[^/]+") do
        if name:find("[*?]") then
            paths = matches_below(paths, name)
        else
            paths = existing_below(paths, name)
        end
    end
    return pattern == "" and {} or paths
end

local function add_tree(found, directory, prefix)
    local names, message = host.list(directory)
    if not names then
        return nil, message
    end
    for _, name in ipairs(names) do
        local path = files.join(directory, name)
        local info, reason = host.stat(path, true)
        if not info then
            return nil, reason
        end
        found[#found + 1] = { name = prefix .. name, path = path, info = info }
        if info.type == "directory" then
            local whole, why = add_tree(found, path, prefix .. name .. "/")
            if not whole then
                return nil, why
            end
        end
    end
    return found
end

--- A file or directory in a tree.
---@class kza.files.Entry
---@field name string     Path relative to the tree's root.
---@field path string     Path to open.
---@field info kza.host.Stat  Of the file itself; links are not followed.

--- All files and directories below a directory, each directory before its
--- content.
---@param directory string
---@return kza.files.Entry[]? entries
---@return string? message
function files.tree(directory)
    return add_tree({}, directory, "")
end

return files
