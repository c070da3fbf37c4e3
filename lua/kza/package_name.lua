-- SPDX-License-Identifier: Apache-2.0
--
-- The parts of a package's name, by the agent's own rules. The functions take
-- the name without directory and extension.

local package_name = {}

--- The plugin: the second field between dashes; with one dash, the part after
--- it; without a dash, the whole name.
---@param name string
---@return string
function package_name.plugin(name)
    local rest = name:match("^[^-]*%-(.*)$")
    return rest and rest:match("^[^-]*") or name
end

--- The version; nil when the name has no place for one. The part after the last
--- dot is always removed first.
---@param name string
---@return string?
function package_name.version(name)
    local text = name:match("^(.*)%.[^.]*$")
    text = text and text:match("^(.*)%-[^-]*$")
    text = text and text:match("%-([^-]*)$")
    return text ~= "" and text or nil
end

return package_name
