---@meta
-- SPDX-License-Identifier: Apache-2.0
--
-- The module kza.startup, which is built into the agent. Nothing loads this
-- file.

--- How a start reads the command line and the configuration files, for tools
--- that look at another agent of the host: `require("kza.startup")`.
---@class kza.startup
local startup = {}

--- An option or switch of a command line.
---@class kza.startup.Option
---@field name string    The long one, as "lua_path".
---@field value? string  None for a switch.

--- What a command line gives: the options in its order. The words that are no
--- options are in the field `words`.
---@param words string[]  Without the program.
---@return kza.startup.Option[]? options
---@return string? message  What a start would complain of.
function startup.options(words) end

--- An entry of a configuration file.
---@class kza.startup.Entry
---@field group string  "" before any group.
---@field name string   As the file has it; its case does not count.
---@field value string

--- The entries of a configuration file, none when it cannot be read.
---@param path string
---@return kza.startup.Entry[] entries
function startup.configuration(path) end

return startup
