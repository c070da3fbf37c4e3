-- SPDX-License-Identifier: Apache-2.0
--
-- The name of a function, as the source of its definition gives it.

--- The name of the function that a line of source defines; nil when the line
--- gives it none.
---@param line string
---@return string?
return function(line)
    return line:match("function%s+([%w_.:]+)%s*%(")
        or line:match("([%w_.:]+)%s*=%s*function%f[^%w_]")
end
