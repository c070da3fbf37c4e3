-- SPDX-License-Identifier: Apache-2.0
--
-- Complaints of kzctl: one line each, on standard error.

--- Writes a complaint; the command goes on.
---@param message string
local function complain(message)
    io.stderr:write("kzctl: ", (message:gsub("%s*\n%s*", " ")), "\n")
end

return complain
