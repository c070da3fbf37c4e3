-- SPDX-License-Identifier: Apache-2.0
--
-- What the name of a package says, by the agent's own rules. Both take the name
-- without directory and extension.

local package_name = {}

--- The plugin: the second field between dashes, all that follows with one dash,
--- the whole name with none.
---@param name string
---@return string
function package_name.plugin(name)
    local rest = name:match("^[^-]*%-(.*)$")
    return rest and rest:match("^[^-]*") or name
end

--- The version; nil when the name has no place for one. What stands after the
--- last dot is taken off first, always.
---@param name string
---@return string?
function package_name.version(name)
    local text = name:match("^(.*)%.[^.]*$")
    text = text and text:match("^(.*)%-[^-]*$")
    text = text and text:match("%-([^-]*)$")
    return text ~= "" and text or nil
end

return package_name
