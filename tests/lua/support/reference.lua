-- SPDX-License-Identifier: Apache-2.0
--
-- Makes the reference for authors out of the annotations.

local annotations = require("annotations")

local WIDTH = 120 -- of a page's lines

local INTRODUCTION =
    "What the agent gives to Lua. This page is made from the annotations in "
    .. "`lua/` (`lua/meta/agent.lua` and its neighbours), which editors with "
    .. "the Lua language server show as you type; a test keeps them true to "
    .. "what the agent registers.\n"

local COMMAND = [[

To make it anew:

    build/stage/kz_agent --appname make_reference \
        --lua_path 'tests/lua/support/?.lua' -- . >docs/authors/reference.md

]]

local page
local sections

local function add(text, ...)
    page[#page + 1] = select("#", ...) > 0 and text:format(...) or text
end

-- Begins a section that the table of contents lists.
local function add_section(title)
    sections[#sections + 1] = title
    add("\n## %s\n", title)
end

-- Text for a cell of a table or a list item.
local function cell(text)
    return (text:gsub("\n+", " "):gsub("|", "\\|"))
end

local function code(text)
    return "`" .. text .. "`"
end

-- The parameters as they are called: f(a [, b]).
local function call_of(params)
    local text = ""
    for i, param in ipairs(params) do
        local name = (i > 1 and ", " or "") .. param.name
        text = text .. (param.optional and
            (" [%s]"):format(name) or name)
    end
    return (text:gsub("^ ", ""))
end

local function describe_params(params)
    for i, param in ipairs(params) do
        add("%s- `%s` (%s%s)%s\n", i == 1 and "\n" or "", param.name,
            code(param.type), param.optional and ", optional" or "",
            param.text ~= "" and ": " .. param.text or "")
    end
end

local function describe_returns(returns)
    local parts = {}
    for i, result in ipairs(returns) do
        parts[i] = result.name
            and ("%s (%s)"):format(code(result.name), code(result.type))
            or code(result.type)
        if result.text ~= "" then
            parts[i] = parts[i] .. ": " .. result.text:gsub("%.$", "")
        end
    end
    if #parts > 0 then
        add("\nReturns %s.\n", table.concat(parts, "; "))
    end
end

local function describe_function(object, item)
    add("\n### `%s%s%s(%s)`\n\n%s\n", object, item.is_method and ":" or ".",
        item.name, call_of(item.params), item.text)
    describe_params(item.params)
    describe_returns(item.returns)
end

local function describe_class(class)
    add("\n### `%s`\n\n%s\n", class.name, class.text)
    add("\n| field | type | |\n|---|---|---|\n")
    for _, field in ipairs(class.fields) do
        add("| `%s` | %s%s | %s |\n", field.name, cell(code(field.type)),
            field.optional and ", optional" or "", cell(field.text))
    end
end

local function describe_values(alias)
    for _, value in ipairs(alias.values) do
        local kind, text = value.text:match("^(%l+): (.*)$")
        if kind then
            add("| `%s` | %s | %s |\n", value.name, kind, cell(text))
        else
            add("| `%s` | %s |\n", value.name, cell(value.text))
        end
    end
end

local function describe_tables(model)
    for _, class in ipairs(model.classes) do
        if #class.fields > 0 then
            describe_class(class)
        end
    end
end

local function alias_named(model, name)
    for _, alias in ipairs(model.aliases) do
        if alias.name == name then
            return alias
        end
    end
end

local function describe_domain(model)
    add_section("Globals")
    add("\n| name | type | |\n|---|---|---|\n")
    for _, global in ipairs(model.globals) do
        add("| `%s` | %s | %s |\n", global.name, cell(code(global.type)),
            cell(global.text))
    end

    add_section("The domain: `dom`")
    add("\n%s\n", model.classes[1].text)
    for _, item in ipairs(model.functions) do
        describe_function("dom", item)
    end
    describe_tables(model)
    add("\n### `kza.LogLevel`\n\n| level | |\n|---|---|\n")
    describe_values(alias_named(model, "kza.LogLevel"))

    local keys = alias_named(model, "kza.Key")
    add_section("Keys of the domain")
    add("\n%s\n", keys.text)
    add("\n| key | type | |\n|---|---|---|\n")
    describe_values(keys)
    add("\nEntries of the configuration file whose names begin with "
        .. "`sqlite.config` are in the domain as integers, under their own "
        .. "names.\n")
end

local function describe_module(name, text, model)
    add_section(("The module `%s`"):format(name))
    add("\n%s\n", text)
    for _, item in ipairs(model.functions) do
        if item.text ~= "" then
            describe_function(name:match("[^.]*$"), item)
        end
    end
    describe_tables(model)
end

-- Links to the sections, by the anchors that a code host makes of titles.
local function contents()
    local links = {}
    for i, title in ipairs(sections) do
        local anchor = title:lower():gsub("[^%w_ -]", ""):gsub(" ", "-")
        links[i] = ("- [%s](#%s)\n"):format(title, anchor)
    end
    return table.concat(links)
end

-- A line of prose as lines of the page's width. Those after the first of a
-- list's item stand below its text.
local function broken(line)
    if line:find("^|") or line:find("^    ") then
        return line
    end
    local indent = line:match("^%- ") and "  " or ""
    local lines, width = {}, 0
    for word in line:gmatch("%S+") do
        local length = #word:gsub("[\128-\191]", "") -- characters of UTF-8
        if #lines == 0 or width + 1 + length > WIDTH then
            lines[#lines + 1] = #lines > 0 and indent .. word or word
            width = #lines > 1 and #indent + length or length
        else
            lines[#lines] = lines[#lines] .. " " .. word
            width = width + 1 + length
        end
    end
    return table.concat(lines, "\n")
end

--- The page, from the annotations of a source tree.
return function(source)
    page, sections = {}, {}
    local function read(name)
        return annotations.read(source .. "/lua/" .. name)
    end

    describe_domain(read("meta/agent.lua"))
    local host = read("meta/host.lua")
    describe_module("kza.host", host.classes[1].text, host)
    describe_module("kza.files", "Files, read and written whole, and "
        .. "wildcards: `require(\"kza.files\")`. Every function answers nil "
        .. "and a message when it fails.", read("kza/files.lua"))
    describe_module("kza.zip", "Writing zip archives: "
        .. "`require(\"kza.zip\")`.", read("kza/zip.lua"))
    local text = "# Reference\n\n" .. INTRODUCTION .. COMMAND .. contents()
        .. table.concat(page)
    return (text:gsub("[^\n]+", broken))
end
