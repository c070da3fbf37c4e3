-- SPDX-License-Identifier: Apache-2.0
--
-- What kzrun itself has to say, on standard error: standard output is the
-- application's.

--- Writes one line.
---@param format string
return function(format, ...)
    io.stderr:write("kzrun: ", (format:format(...):gsub("%s*\n%s*", " ")), "\n")
end
