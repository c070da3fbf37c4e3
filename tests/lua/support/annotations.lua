-- SPDX-License-Identifier: Apache-2.0
--
-- Reads the annotations of Lua source: the comments with "---" before a
-- function, a class, an alias or a global.

local annotations = {}

---@class Block
---@field lines string[]    Text without tags.
---@field tags string[][]   {name, rest}.

local function trim(text)
    return (text:gsub("^%s+", ""):gsub("%s+$", ""))
end

-- A comment line belongs to the last tag when one stands before it, except for
-- the values of an alias.
local function add_comment(block, comment)
    local tag, rest = comment:match("^@(%a+)%s*(.*)$")
    local last = block.tags[#block.tags]
    if tag then
        block.tags[#block.tags + 1] = { tag, trim(rest) }
    elseif comment:sub(1, 1) == "|" then
        block.tags[#block.tags + 1] = { "value", trim(comment:sub(2)) }
    elseif last and last[1] ~= "meta" then
        last[2] = trim(last[2] .. " " .. trim(comment))
    else
        block.lines[#block.lines + 1] = trim(comment)
    end
end

-- Text of a block: lines of a paragraph joined.
local function text_of(block)
    local paragraphs = { "" }
    for _, line in ipairs(block.lines) do
        if line == "" then
            paragraphs[#paragraphs + 1] = ""
        else
            paragraphs[#paragraphs] = trim(paragraphs[#paragraphs] .. " "
                .. line)
        end
    end
    return table.concat(paragraphs, "\n\n")
end

-- "name? type  text" of a parameter or field; a type is one word, or a
-- function or table type with its brackets.
local function split_typed(rest)
    local name, optional, after = rest:match("^([%w_]+)(%??)%s+(.*)$")
    local kind = after:match("^%b()") or after:match("^[%w_.]+%b<>")
        or after:match("^%S+")
    return {
        name = name,
        optional = optional == "?",
        type = kind,
        text = trim(after:sub(#kind + 1)),
    }
end

local function split_return(rest)
    local kind, after = rest:match("^(%S+)%s*(.*)$")
    local name, text = after:match("^([%l_]+)%s*(.*)$")
    return { type = kind, name = name, text = text or trim(after) }
end

-- What `split` makes of the tags of a name; it may answer nil for one.
local function tags_of(block, wanted, split)
    local found = {}
    for _, tag in ipairs(block.tags) do
        if tag[1] == wanted then
            found[#found + 1] = split(tag[2])
        end
    end
    return found
end

local function tag_of(block, wanted)
    for _, tag in ipairs(block.tags) do
        if tag[1] == wanted then
            return tag[2]
        end
    end
end

-- A value of an alias: "literal" # text.
local function split_value(rest)
    local name, text = rest:match('^"([^"]*)"%s*#%s*(.*)$')
    return name and { name = name, text = text }
end

local function add_function(model, block, line)
    local owner, separator, name, parameters =
        line:match("^function ([%w_]+)([.:])([%w_]+)%((.-)%)")
    if not owner then
        return
    end
    model.functions[#model.functions + 1] = {
        owner = owner,
        is_method = separator == ":",
        name = name,
        parameters = parameters,
        text = text_of(block),
        params = tags_of(block, "param", split_typed),
        returns = tags_of(block, "return", split_return),
    }
end

-- What the block describes, by its tags or by the line of code after it.
local function add_item(model, block, line)
    local class, alias = tag_of(block, "class"), tag_of(block, "alias")
    local global = line:match("^([%a_][%w_]*) = %1$")
    if class then
        model.classes[#model.classes + 1] = {
            name = class,
            variable = line:match("^local ([%w_]+) ="),
            text = text_of(block),
            fields = tags_of(block, "field", split_typed),
        }
    elseif alias then
        model.aliases[#model.aliases + 1] = {
            name = alias:match("^%S+"),
            text = text_of(block),
            values = tags_of(block, "value", split_value),
        }
    elseif global then
        model.globals[#model.globals + 1] = {
            name = global,
            type = tag_of(block, "type"),
            text = text_of(block),
        }
    else
        add_function(model, block, line)
    end
end

--- What a file's annotations say: {functions=, classes=, aliases=, globals=},
--- each an array in the order of the file.
function annotations.read(path)
    local model = { functions = {}, classes = {}, aliases = {}, globals = {} }
    local block
    for line in assert(io.open(path)):lines() do
        local comment = line:match("^%-%-%-(.*)$")
        if comment and not comment:find("^%-") then
            block = block or { lines = {}, tags = {} }
            add_comment(block, comment)
        elseif block then
            add_item(model, block, line)
            block = nil
        else
            add_function(model, { lines = {}, tags = {} }, line)
        end
    end
    return model
end

return annotations
