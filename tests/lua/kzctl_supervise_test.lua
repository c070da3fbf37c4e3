-- SPDX-License-Identifier: Apache-2.0
--
-- How kzctl asks a service to stop, beside a service that is played: what a
-- request does depends on whether the watchdog has a worker at that moment.

local lu = require("luaunit")

-- The module with these instead of what it requires.
local function with(stubs)
    local name = "kza.ctl.supervise"
    local before = { [name] = false }
    for stub in pairs(stubs) do
        before[stub] = package.loaded[stub] or false
        package.loaded[stub] = stubs[stub]
    end
    package.loaded[name] = nil
    local module = require(name)
    for stub, loaded in pairs(before) do
        package.loaded[stub] = loaded or nil
    end
    return module
end

-- Asks a played service to stop. `looks` answers what the service has at each
-- look, by the number of requests and of looks so far.
local function stop(looks)
    local requests, seen, now = {}, 0, 0
    local host = {
        clock = function()
            now = now + 0.1
            return now
        end,
        kill = function(pid, signal)
            requests[#requests + 1] = pid .. " " .. signal
            return true
        end,
    }
    local service = {
        look = function()
            seen = seen + 1
            return looks(#requests, seen)
        end,
    }
    local supervise = with({ ["kza.host"] = host,
        ["kza.ctl.service"] = service })
    return supervise.stop({}, 5), requests
end

local WATCHDOG, WORKER = { pid = 1 }, { pid = 2 }

TestStop = {}

function TestStop.test_one_with_a_worker_is_asked_once()
    local stopped, requests = stop(function(_, seen)
        return seen < 10 and { watchdog = WATCHDOG, worker = WORKER } or {}
    end)
    lu.assertTrue(stopped)
    lu.assertEquals(requests, { "1 TERM" })
end

function TestStop.test_one_without_a_worker_is_asked_twice()
    local stopped, requests = stop(function(asked)
        return asked < 2 and { watchdog = WATCHDOG } or {}
    end)
    lu.assertTrue(stopped)
    lu.assertEquals(requests, { "1 TERM", "1 TERM" })
end

-- The watchdog takes the first request, and its wait goes on until it starts
-- the next worker, which is told nothing of that request.
function TestStop.test_a_worker_that_starts_after_the_request()
    local states = {
        [0] = { watchdog = WATCHDOG },
        [1] = { watchdog = WATCHDOG, worker = WORKER },
        [2] = {},
    }
    local stopped, requests = stop(function(asked)
        return states[asked]
    end)
    lu.assertTrue(stopped)
    lu.assertEquals(requests, { "1 TERM", "1 TERM" })
end

function TestStop.test_a_worker_that_dies_before_the_request()
    local states = {
        [0] = { watchdog = WATCHDOG, worker = WORKER },
        [1] = { watchdog = WATCHDOG },
        [2] = {},
    }
    local stopped, requests = stop(function(asked)
        return states[asked]
    end)
    lu.assertTrue(stopped)
    lu.assertEquals(requests, { "1 TERM", "1 TERM" })
end

function TestStop.test_a_worker_without_a_watchdog_is_asked_once()
    local stopped, requests = stop(function(_, seen)
        return seen < 10 and { worker = WORKER } or {}
    end)
    lu.assertTrue(stopped)
    lu.assertEquals(requests, { "2 TERM" })
end

function TestStop.test_one_that_does_not_end_has_not_stopped()
    local stopped, requests = stop(function()
        return { watchdog = WATCHDOG, worker = WORKER }
    end)
    lu.assertFalse(stopped)
    lu.assertEquals(requests, { "1 TERM" })
end
