---@meta
-- SPDX-License-Identifier: Apache-2.0
--
-- The module kza.host, which is built into the agent. Nothing loads this file.

--- What Lua's own libraries lack, on every host: `require("kza.host")`.
---@class kza.host
local host = {}

--- What is at a path.
---@class kza.host.Stat
---@field type "file"|"directory"|"link"|"other"
---@field size number      Bytes.
---@field mode integer     Permission bits.

--- The names in a directory, sorted by byte, without "." and "..".
---@param path string
---@return string[]? names
---@return string? message
function host.list(path) end

--- What is at a path.
---@param path string
---@param nofollow? boolean  Tell of a symbolic link itself.
---@return kza.host.Stat? stat
---@return string? message
function host.stat(path, nofollow) end

--- The checksum that zip archives use.
---@param bytes string
---@return integer crc
function host.crc32(bytes) end

--- The raw deflate stream of some bytes, the same for the same bytes.
---@param bytes string
---@return string packed
function host.deflate(bytes) end

--- An entry of a zip archive.
---@class kza.host.Entry
---@field name string
---@field size number       Bytes once unpacked.
---@field mode integer      Permission bits, 0 when there are none.
---@field problem? string   Why it cannot be read.

--- The entries of a zip archive, in its order.
---@param path string
---@param read? boolean     Read each through, to find damage.
---@return kza.host.Entry[]? entries
---@return string? message
function host.entries(path, read) end

--- Whether the agent would take a package apart in a directory. Writes nothing.
---@param path string
---@param directory string
---@return true? accepted
---@return string? message
function host.check_package(path, directory) end

--- Whether a descriptor is a terminal.
---@param descriptor integer  0 is standard input, 1 standard output.
---@return boolean
function host.isatty(descriptor) end

return host
