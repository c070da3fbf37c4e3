-- SPDX-License-Identifier: Apache-2.0
--
-- Ends a command of kzctl: with a complaint of one line and a status.

---@class kza.ctl.Failure
---@field message string
---@field status integer

--- Raises the complaint that ends the command, with status 1.
---@param format string
local function fail(format, ...)
    error({ message = format:format(...), status = 1 }, 0)
end

return fail
