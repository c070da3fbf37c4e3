-- SPDX-License-Identifier: Apache-2.0
--
-- How long to wait after a failure: from a second on, twice as long at most
-- after each further one, never more than five minutes.
--
-- The wait is drawn between the least and that bound. Thousands of agents lose
-- a server at the same moment; they must not come back at the same moment.

local backoff = {}

local LEAST = 1
local MOST = 300

-- A number from 0 to 1. The system's own source: agents that start together
-- would draw the same numbers from a clock.
local function random()
    local source = io.open("/dev/urandom", "rb")
    local bytes = source and source:read(2)
    if source then
        source:close()
    end
    if not bytes then
        return math.random()
    end
    local high, low = bytes:byte(1, 2)
    return (high * 256 + low) / 65535
end

--- Seconds to wait after so many failures in a row. `draw` is for tests.
function backoff.seconds(failures, draw)
    local bound = math.min(MOST, LEAST * 2 ^ failures)
    return LEAST + (draw or random)() * (bound - LEAST)
end

--- Somewhere in an interval, to spread what begins together.
function backoff.part_of(interval)
    return random() * interval
end

return backoff
