-- SPDX-License-Identifier: Apache-2.0
--
-- Removes the debug information from a compiled chunk: the source's name, the
-- line of each instruction and the names of variables. string.dump of Lua 5.2
-- always includes it. Without it, error messages cannot name the place.
--
-- The layout is that of Lua 5.2. A chunk is a header and a function; a
-- function is read field by field and copied, except for its debug fields.

local HEADER_SIZE = 18

-- Types of constants.
local NIL, BOOLEAN, NUMBER, STRING = 0, 1, 3, 4

---@class Reader
local Reader = {}
Reader.__index = Reader

function Reader:take(count)
    local from = self.position
    if from + count - 1 > #self.bytes then
        error("the compiled chunk is cut short", 0)
    end
    self.position = from + count
    return self.bytes:sub(from, from + count - 1)
end

function Reader:number(size)
    local bytes, value = self:take(size), 0
    for i = size, 1, -1 do
        value = value * 256 + bytes:byte(i)
    end
    return value
end

-- Copies a field to the output and returns its value as a number.
function Reader:keep(count)
    self.kept[#self.kept + 1] = self:take(count)
end

function Reader:keep_number(size)
    local value = self:number(size)
    self.kept[#self.kept + 1] =
        self.bytes:sub(self.position - size, self.position - 1)
    return value
end

function Reader:add_zero(size)
    self.kept[#self.kept + 1] = ("\0"):rep(size)
end

function Reader:keep_constant()
    local kind = self:keep_number(1)
    if kind == BOOLEAN then
        self:keep(1)
    elseif kind == NUMBER then
        self:keep(self.lua_number)
    elseif kind == STRING then
        self:keep(self:keep_number(self.size_t))
    elseif kind ~= NIL then
        error("the compiled chunk has an unknown constant", 0)
    end
end

-- Replaces the source's name, the lines, the local variables and the upvalues'
-- names by an empty string and empty lists.
function Reader:drop_debug()
    self:take(self:number(self.size_t))
    self:add_zero(self.size_t)

    self:take(self:number(self.int) * self.int)
    self:add_zero(self.int)

    for _ = 1, self:number(self.int) do
        self:take(self:number(self.size_t))
        self:take(2 * self.int)
    end
    self:add_zero(self.int)

    for _ = 1, self:number(self.int) do
        self:take(self:number(self.size_t))
    end
    self:add_zero(self.int)
end

function Reader:keep_function()
    self:keep(2 * self.int + 3) -- lines, parameters, varargs, stack
    self:keep(self:keep_number(self.int) * self.instruction)
    for _ = 1, self:keep_number(self.int) do
        self:keep_constant()
    end
    for _ = 1, self:keep_number(self.int) do
        self:keep_function()
    end
    self:keep(self:keep_number(self.int) * 2) -- upvalues
    self:drop_debug()
end

--- A compiled chunk without its debug information.
---@param chunk string  From string.dump, on this machine.
---@return string
return function(chunk)
    local little_endian = chunk:byte(7) == 1
    if chunk:sub(1, 5) ~= "\27LuaR" or not little_endian then
        error("not a compiled chunk of this Lua", 0)
    end
    local reader = setmetatable({
        bytes = chunk,
        position = 1,
        kept = {},
        int = chunk:byte(8),
        size_t = chunk:byte(9),
        instruction = chunk:byte(10),
        lua_number = chunk:byte(11),
    }, Reader)
    reader:keep(HEADER_SIZE)
    reader:keep_function()
    return table.concat(reader.kept)
end
