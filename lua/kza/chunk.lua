-- SPDX-License-Identifier: Apache-2.0
--
-- Reads a compiled chunk, as string.dump makes it on this machine.
--
-- The layout is that of Lua 5.2. A chunk is a header and a function; a
-- function holds its code, its constants, its inner functions and, at the end,
-- its debug information.

local HEADER_SIZE = 18

-- Types of constants.
local NIL, BOOLEAN, NUMBER, STRING = 0, 1, 3, 4

---@class kza.chunk.Reader
---@field bytes string
---@field position integer
---@field int integer          Sizes of the types, in bytes.
---@field size_t integer
---@field instruction integer
---@field lua_number integer
---@field functions kza.chunk.Function[]
local Reader = {}
Reader.__index = Reader

--- A function of a chunk, without those inside of it.
---@class kza.chunk.Function
---@field first integer     Line where its definition begins; 0 for the chunk.
---@field last integer      Line where it ends.
---@field lines integer[]   The line of each instruction.
---@field debug integer     Position of the debug information in the chunk.
---@field behind integer    Position behind it.

-- Moves the position on and returns the one before. Raises an error when the
-- chunk ends earlier.
function Reader:skip(count)
    local from = self.position
    self.position = from + count
    if self.position > #self.bytes + 1 then
        error("the compiled chunk is cut short", 0)
    end
    return from
end

function Reader:number(size)
    local from = self:skip(size)
    local value = 0
    for i = from + size - 1, from, -1 do
        value = value * 256 + self.bytes:byte(i)
    end
    return value
end

function Reader:skip_text()
    self:skip(self:number(self.size_t))
end

function Reader:skip_constant()
    local kind = self:number(1)
    if kind == BOOLEAN then
        self:skip(1)
    elseif kind == NUMBER then
        self:skip(self.lua_number)
    elseif kind == STRING then
        self:skip_text()
    elseif kind ~= NIL then
        error("the compiled chunk has an unknown constant", 0)
    end
end

-- The source's name, the lines, the local variables and the upvalues' names.
function Reader:read_debug(found)
    found.debug = self.position
    self:skip_text()
    for i = 1, self:number(self.int) do
        found.lines[i] = self:number(self.int)
    end
    for _ = 1, self:number(self.int) do
        self:skip_text()
        self:skip(2 * self.int)
    end
    for _ = 1, self:number(self.int) do
        self:skip_text()
    end
    found.behind = self.position
end

function Reader:read_function()
    local found = { first = self:number(self.int), last = self:number(self.int),
        lines = {} }
    self:skip(3) -- parameters, varargs, stack
    self:skip(self:number(self.int) * self.instruction)
    for _ = 1, self:number(self.int) do
        self:skip_constant()
    end
    for _ = 1, self:number(self.int) do
        self:read_function()
    end
    self:skip(self:number(self.int) * 2) -- upvalues
    self:read_debug(found)
    self.functions[#self.functions + 1] = found
end

local chunk = {}

--- The functions of a chunk, each after those inside of it.
---@param bytes string
---@return kza.chunk.Function[]
function chunk.functions(bytes)
    local little_endian = bytes:byte(7) == 1
    if bytes:sub(1, 5) ~= "\27LuaR" or not little_endian then
        error("not a compiled chunk of this Lua", 0)
    end
    local reader = setmetatable({
        bytes = bytes,
        position = 1,
        int = bytes:byte(8),
        size_t = bytes:byte(9),
        instruction = bytes:byte(10),
        lua_number = bytes:byte(11),
        functions = {},
    }, Reader)
    reader:skip(HEADER_SIZE)
    reader:read_function()
    return reader.functions
end

--- The bytes of empty debug information.
---@param bytes string  A chunk, which has the sizes of the types.
---@return string
function chunk.no_debug(bytes)
    return ("\0"):rep(bytes:byte(9) + 3 * bytes:byte(8))
end

return chunk
