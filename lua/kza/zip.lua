-- SPDX-License-Identifier: Apache-2.0
--
-- Writes zip archives: the same entries always give the same bytes.
--
-- Therefore every entry has the format's first day as its time and no owner,
-- and of the permission bits only whether the file is executable.

local host = require("kza.host")

local zip = {}

-- The limit of the format without zip64; archives of modules and plugins are
-- far smaller.
local MAX_SIZE = 0xFFFFFFFE
local MAX_ENTRIES = 0xFFFE

local VERSION = 20 -- an unpacker must know directories and deflate
local MADE_BY_UNIX = 3 * 256 + VERSION
local FIRST_DAY = 0x21 -- 1980-01-01
local UTF8_NAME = 0x0800
local STORED, DEFLATED = 0, 8

local MODE_FILE = tonumber("100644", 8)
local MODE_PROGRAM = tonumber("100755", 8)
local MODE_DIRECTORY = tonumber("040755", 8)

-- Little-endian numbers of two and four bytes.
local function u16(value)
    return string.char(value % 256, math.floor(value / 256) % 256)
end

local function u32(value)
    return u16(value % 65536) .. u16(math.floor(value / 65536))
end

--- A file or directory to be put into an archive.
---@class kza.zip.Entry
---@field name string        Path in the archive; a directory ends with "/".
---@field bytes? string      Content; none for a directory.
---@field executable? boolean  Whether the file is executable.

local function mode_of(entry)
    if entry.name:sub(-1) == "/" then
        return MODE_DIRECTORY
    end
    return entry.executable and MODE_PROGRAM or MODE_FILE
end

-- The method, and the bytes in the archive.
local function compress(bytes)
    local packed = host.deflate(bytes)
    if #packed < #bytes then
        return DEFLATED, packed
    end
    return STORED, bytes
end

-- The fields that the local header and the directory have in common.
local function common_fields(entry, method, packed)
    local bytes = entry.bytes or ""
    local flags = entry.name:find("[\128-\255]") and UTF8_NAME or 0
    return table.concat({
        u16(VERSION), u16(flags), u16(method), u16(0), u16(FIRST_DAY),
        u32(host.crc32(bytes)), u32(#packed), u32(#bytes),
        u16(#entry.name), u16(0),
    })
end

local function local_header(entry, fields)
    return "PK\3\4" .. fields .. entry.name
end

local function directory_record(entry, fields, offset)
    return table.concat({
        "PK\1\2", u16(MADE_BY_UNIX), fields, u16(0), u16(0), u16(0),
        u32(mode_of(entry) * 65536), u32(offset), entry.name,
    })
end

local function end_record(count, size, offset)
    return table.concat({
        "PK\5\6", u16(0), u16(0), u16(count), u16(count), u32(size),
        u32(offset), u16(0),
    })
end

--- The bytes of an archive with these entries, in this order.
---@param entries kza.zip.Entry[]
---@return string? bytes
---@return string? message
function zip.pack(entries)
    if #entries > MAX_ENTRIES then
        return nil, ("too many entries: %d"):format(#entries)
    end
    local parts, directory, offset = {}, {}, 0
    for i, entry in ipairs(entries) do
        if #entry.name > 0xFFFF then
            return nil, "a name is too long"
        end
        local method, packed = compress(entry.bytes or "")
        local fields = common_fields(entry, method, packed)
        local header = local_header(entry, fields)
        directory[i] = directory_record(entry, fields, offset)
        parts[#parts + 1] = header
        parts[#parts + 1] = packed
        offset = offset + #header + #packed
        if offset > MAX_SIZE or #(entry.bytes or "") > MAX_SIZE then
            return nil, "too much for one archive"
        end
    end
    local records = table.concat(directory)
    parts[#parts + 1] = records
    parts[#parts + 1] = end_record(#entries, #records, offset)
    return table.concat(parts)
end

return zip
