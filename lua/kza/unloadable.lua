-- SPDX-License-Identifier: Apache-2.0
--
-- Says what in an archive no `require` can ever load, by the names alone.
--
-- A module `a.b` is the first of `a/b.lua` and `a/b/init.lua`; names are
-- compared to the letter.

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

-- A warning about the files for which `key_of` answers as for an earlier one;
-- it answers nil for files that do not matter.
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

-- Only ASCII counts: what other letters are depends on the locale.
local function in_one_case(name)
    return (name:gsub("[A-Z]", function(letter)
        return string.char(letter:byte() + 32)
    end))
end

-- A warning when there are Lua files, and none where a package's modules begin.
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

--- What cannot be loaded as its author will expect, one text for each kind of
--- mistake; it names the first file and counts them.
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
