-- SPDX-License-Identifier: Apache-2.0
-- What a script of a test needs to know about its own process.
--
-- A script that ends before the main thread has entered its event loop leaves
-- the run going, as the hand-over demands; a test's script waits for the loop
-- first.

local mainloop = {}

local function read(path)
  local file = io.open(path)
  if not file then return "" end
  local text = file:read("*a") or ""
  file:close()
  return text
end

-- The process id.
function mainloop.pid()
  return tonumber(read("/proc/self/stat"):match("^%d+"))
end

-- Waits until the main thread sits in its event loop. Looks all the time: an
-- accelerated clock does not carry over to dom:Sleep.
function mainloop.wait()
  local main = "/proc/self/task/" .. mainloop.pid() .. "/"
  repeat
    local inside = read(main .. "wchan"):find("epoll") or
      read(main .. "syscall"):find("^232 ") -- epoll_wait, where wchan is hidden
  until inside
end

-- The given line of /proc/self/status, for example "SigBlk".
function mainloop.status(name)
  return read("/proc/self/status"):match(name .. ":%s*([^\n]*)")
end

return mainloop
