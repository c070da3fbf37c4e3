-- SPDX-License-Identifier: Apache-2.0
--
-- Removes the debug information from a compiled chunk: the source's name, the
-- line of each instruction and the names of variables. string.dump of Lua 5.2
-- always includes it. Without it, error messages cannot name the place.

local chunk = require("kza.chunk")

--- A compiled chunk without its debug information.
---@param bytes string  From string.dump, on this machine.
---@return string
return function(bytes)
    local nothing = chunk.no_debug(bytes)
    local kept, at = {}, 1
    for _, part in ipairs(chunk.functions(bytes)) do
        kept[#kept + 1] = bytes:sub(at, part.debug - 1)
        kept[#kept + 1] = nothing
        at = part.behind
    end
    return table.concat(kept) .. bytes:sub(at)
end
