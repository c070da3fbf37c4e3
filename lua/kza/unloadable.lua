-- SPDX-License-Identifier: Apache-2.0
--
-- Finds files in an archive that no `require` can ever load, by their names
-- alone.
--
-- A module `a.b` is the file `a/b.lua`, else `a/b/init.lua`; the case of
-- letters matters.

local function counted(count)
    return count == 1 and "(1 file)" or ("(%d files)"):format(count)
end

-- A warning about the files whose names fit one of the patterns.
local function about_kind(warnings, names, patterns, text)
    local first, count = nil, 0
    for _, name in ipairs(names) do
        for _, pattern in ipairs(patterns) do
            if name:find(pattern) then
                first, count = first or name, count + 1
            end
        end
    end
    if first then
        warnings[#warnings + 1] = text:format(first, counted(count))
    end
end

-- A warning about the files for which `key_of` returns the same as for an
-- earlier file; it returns nil for files that do not matter.
local function about_same(warnings, names, key_of, text)
    local owners, first, owner, count = {}, nil, nil, 0
    for _, name in ipairs(names) do
        local key = key_of(name)
        if key and owners[key] then
            first, owner = first or name, owner or owners[key]
            count = count + 1
        elseif key then
            owners[key] = name
        end
    end
    if first then
        warnings[#warnings + 1] = text:format(first, owner, counted(count))
    end
end

-- The module that a file is, nil when it is none: a dot in a module's name
-- stands for a directory.
local function module_of(name)
    local path = name:match("^(.+)/init%.lua$") or name:match("^(.+)%.lua$")
    if path and not path:find(".", 1, true) then
        return (path:gsub("/", "."))
    end
end

-- The name in lower case. Only ASCII is changed: the case of other letters
-- depends on the locale.
local function in_one_case(name)
    return (name:gsub("[A-Z]", function(letter)
        return string.char(letter:byte() + 32)
    end))
end

-- A warning when there are Lua files, but none at the root of the archive,
-- where the names of modules begin.
local function about_root(warnings, names)
    local first, count = nil, 0
    for _, name in ipairs(names) do
        if name:find("^[^/]+%.lua$") or name:find("^[^/]+/init%.lua$") then
            return
        end
        if module_of(name) then
            first, count = first or name, count + 1
        end
    end
    if first then
        warnings[#warnings + 1] = ("no Lua file lies at the root: %s would be "
            .. "required as '%s' %s"):format(
            first, module_of(first), counted(count))
    end
end

--- Warnings about files that cannot be loaded as their author expects, one text
--- for each kind of mistake; it names the first file and the number of files.
---@param names string[]  The archive's files, sorted by byte.
---@return string[] warnings
return function(names)
    local warnings = {}
    about_kind(warnings, names, { "%.so$", "%.c$" },
        "no C module is ever loaded from an archive: %s %s")
    about_root(warnings, names)
    about_same(warnings, names, module_of,
        "%s is never loaded, %s is the same module %s")
    about_same(warnings, names, in_one_case,
        "%s differs from %s by case only %s")
    return warnings
end
