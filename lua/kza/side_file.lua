-- SPDX-License-Identifier: Apache-2.0
--
-- Reads the version side file of an extension archive, as the agent does.
--
-- A side file is a text whose first line that begins with "version:" contains
-- major.minor.patch-build. It is read as a stream, up to the end of the
-- version: the file and its lines may have any size.

local host = require("kza.host")

local PIECE = 65536 -- bytes read at once, a multiple of every unit's width
local MAX_NUMBER = 0x7FFFFFFF -- a larger number is replaced by this one

-- The number of characters shown of a malformed line.
local MAX_SHOWN = 60

-- Byte-order marks, with the width of a unit and the place of an ASCII
-- character in it. Where one mark is the beginning of another, the longer one
-- comes first.
local ENCODINGS = {
    { mark = "\255\254\0\0", width = 4, at = 1 },
    { mark = "\0\0\254\255", width = 4, at = 4 },
    { mark = "\255\254", width = 2, at = 1 },
    { mark = "\254\255", width = 2, at = 2 },
    { mark = "\239\187\191", width = 1 },
    { mark = "", width = 1 },
}

local function encoding_of(bytes)
    for _, encoding in ipairs(ENCODINGS) do
        if bytes:sub(1, #encoding.mark) == encoding.mark then
            return encoding
        end
    end
end

-- Converts a text in units of several bytes to ASCII, with "?" for all other
-- characters: the version line is plain ASCII. An incomplete unit at the end is
-- left out.
local function narrow(bytes, encoding)
    if encoding.width == 1 then
        return bytes
    end
    local zeros = ("\0"):rep(encoding.width - 1)
    local characters = {}
    for i = 1, #bytes - encoding.width + 1, encoding.width do
        local unit = bytes:sub(i, i + encoding.width - 1)
        local character = unit:sub(encoding.at, encoding.at)
        local others = unit:sub(1, encoding.at - 1)
            .. unit:sub(encoding.at + 1)
        local ascii = others == zeros and character < "\128"
        characters[#characters + 1] = ascii and character or "?"
    end
    return table.concat(characters)
end

---@class kza.side_file.Reader
---@field file file*
---@field encoding table
---@field text string  Was read; not yet consumed from `at` on.
---@field at integer
local Reader = {}
Reader.__index = Reader

-- Reads more of the file, if there is more, and drops the consumed text.
function Reader:fill()
    local bytes = self.file:read(PIECE)
    self.text = self.text:sub(self.at)
        .. (bytes and narrow(bytes, self.encoding) or "")
    self.at = 1
    return bytes ~= nil
end

-- The next `count` characters, fewer at the end.
function Reader:peek(count)
    while #self.text - self.at + 1 < count and self:fill() do end
    return self.text:sub(self.at, self.at + count - 1)
end

-- Consumes a text; false when other characters come next.
function Reader:skip(text)
    if self:peek(#text) ~= text then
        return false
    end
    self.at = self.at + #text
    return true
end

-- Consumes all characters of a class, such as "%s"; true when there was one.
function Reader:skip_all(class)
    local any = false
    repeat
        local _, last = self.text:find("^" .. class .. "+", self.at)
        if last then
            any, self.at = true, last + 1
        end
    until self.at <= #self.text or not self:fill()
    return any
end

-- Consumes the text up to the first "version:" at the beginning of a line;
-- false without one.
function Reader:find_version_line()
    while self:peek(1) ~= "" do
        if self:skip("version:") then
            return true
        end
        self:skip_all("[^\r\n]")
        self:skip_all("[\r\n]")
    end
    return false
end

-- Consumes white space, a sign and digits, and returns the number; nil without
-- digits.
function Reader:read_number()
    self:skip_all("[ \t\v\f]")
    local sign = (self:skip("-") and -1) or (self:skip("+") and 1) or 1
    local value
    while self:peek(1):find("^%d") do
        value = math.min((value or 0) * 10 + tonumber(self:peek(1)), MAX_NUMBER)
        self.at = self.at + 1
    end
    return value and sign * value
end

function Reader:read_version()
    local major = self:read_number()
    local minor = major and self:skip(".") and self:read_number()
    local patch = minor and self:skip(".") and self:read_number()
    local build = patch and self:skip("-") and self:read_number()
    return build and ("%d.%d.%d"):format(major, minor, patch)
end

local function read(file)
    local begin = file:read(4) or ""
    local encoding = encoding_of(begin)
    file:seek("set", #encoding.mark)
    local reader = setmetatable(
        { file = file, encoding = encoding, text = "", at = 1 }, Reader)
    if not reader:find_version_line() then
        return nil, "has no line 'version: ...'"
    end
    local rest = reader:peek(MAX_SHOWN):match("^[^\r\n]*")
    local version = reader:read_version()
    if not version then
        return nil, ("has a malformed line 'version:%s'"):format(rest)
    end
    return version
end

--- The version in a side file, without its build.
---@param path string      The side file itself.
---@return string? version
---@return string? message  The fault of the file, to follow its name.
return function(path)
    local info = host.stat(path)
    if not info or info.type ~= "file" then
        return nil, "is missing"
    end
    local file, message = io.open(path, "rb")
    if not file then
        return nil, "cannot be read" .. message:sub(#path + 1)
    end
    local version, problem = read(file)
    file:close()
    return version, problem
end
