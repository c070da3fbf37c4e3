-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's application: what is done when, and what the log says.
-- Domain, clock and streams are the test's own.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local backoff = require("fleet.backoff")
local fake_streams = require("fake_streams")
local host = require("kza.host")
local servers = require("fleet.servers")

-- The application alone, with the test's search path for `require("fleet")`.
local function load_fleet()
    return dofile(support.source .. "/examples/fleet/fleet.lua")
end

TestFleet = {}

function TestFleet:setUp()
    self.dom, self.clock, self.new = dom, host.clock, servers.new
    self.seconds, self.part_of = backoff.seconds, backoff.part_of
    self.now, self.log, self.waits, self.links = 1024, {}, {}, 0
    self.is_stopping, self.closed, self.on_wait = false, false, nil
    -- Times are sums of powers of two, which numbers hold exactly.
    self.values = { ["fleet.host"] = "web1", ["fleet.interval"] = "125" }
    self.events = {}
    self.streams = fake_streams.new()
    self.streams.try_again = function() end
    self.streams.close = function() self.closed = true end
    host.clock = function() return self.now end
    servers.new = function(_, stopping)
        self.links = self.links + 1
        self.stopping = stopping
        return self.streams
    end
    backoff.seconds = function(failures) return 10 * failures end
    backoff.part_of = function(interval) return interval / 4 end
    self:make_domain(support.directory())
    self.fleet = load_fleet()
end

function TestFleet:tearDown()
    dom, host.clock, servers.new = self.dom, self.clock, self.new
    backoff.seconds, backoff.part_of = self.seconds, self.part_of
end

function TestFleet:make_domain(directory)
    dom = {
        Get = function(_, key) return self.values[key] end,
        Set = function(_, key, value) self.values[key] = value end,
        Log = function(_, level, text)
            if level ~= "info" then
                self.log[#self.log + 1] = level .. " " .. text
            end
        end,
        GetPluginWorkdir = function() return directory end,
        AgentEvents = function(_, after, limit)
            local found = {}
            for _, event in ipairs(self.events) do
                if event.id > after and #found < limit then
                    found[#found + 1] = event
                end
            end
            return found
        end,
        Sleep = function() return not self.is_stopping end,
        Wait = function(_, key, ms)
            self.waits[#self.waits + 1] = key .. " " .. ms
            return self.on_wait(#self.waits)
        end,
    }
end

function TestFleet:store(count)
    for id = #self.events + 1, #self.events + count do
        self.events[id] = { id = id, number = 1, severity = 5, time = 1,
            time_ms = 1000, text = "event " .. id }
    end
end

function TestFleet:length(what)
    return #self.streams:ids("kza:" .. what)
end

-- The fake server makes no ids; this stands for what XADD * answers.
function TestFleet:take_vitals()
    local call, count = self.streams.call, 0
    self.streams.call = function(streams, key, name, ...)
        if name == "XADD" then
            count = count + 1
            return call(streams, key, name, key, count .. "-0", "a", "b")
        end
        return call(streams, key, name, ...)
    end
end

function TestFleet:test_events_vitals_and_settings()
    self:take_vitals()
    self:store(3)
    self.streams:transaction(nil, nil, {
        { "XADD", "kza:settings", "1-0", "set", "a=1" },
        { "XADD", "kza:settings:web1", "1-0", "set", "b=2" },
        { "XADD", "kza:settings:web2", "1-0", "set", "c=3" },
    })
    self.fleet.init()
    self.fleet.step()
    lu.assertEquals(self:length("events:web1"), 3)
    lu.assertEquals(self:length("vitals:web1"), 1)
    lu.assertEquals({ self.values.a, self.values.b, self.values.c },
        { "1", "2", nil })
    lu.assertEquals(self.log, {
        "message fleet: this is 'web1', reporting to 127.0.0.1:6379" })
end

-- The first pause before the next vitals is a part of the interval, so that
-- hosts that start together part.
function TestFleet:test_each_duty_has_its_own_time()
    self:take_vitals()
    self.values["fleet.vitals.interval"] = "8000"
    self.fleet.init()
    lu.assertEquals(self.fleet.step(), 125)
    self.now = self.now + 0.0625
    lu.assertEquals(self.fleet.step(), 63)
    self.now = self.now + 1.9375
    self:store(1)
    lu.assertEquals(self.fleet.step(), 125)
    lu.assertEquals(self:length("events:web1"), 1)
    lu.assertEquals(self:length("vitals:web1"), 2)
    self.now = self.now + 7.875
    self.fleet.step()
    lu.assertEquals(self:length("vitals:web1"), 2)
    self.now = self.now + 0.125
    self.fleet.step()
    lu.assertEquals(self:length("vitals:web1"), 3)
end

function TestFleet:test_a_heartbeat_makes_all_due()
    self:take_vitals()
    self.fleet.init()
    self.fleet.step()
    self:store(1)
    self.fleet.step(true)
    lu.assertEquals(self:length("events:web1"), 1)
    lu.assertEquals(self:length("vitals:web1"), 2)
end

-- A batch at a time, so that a heartbeat need not wait for all of them.
function TestFleet:test_what_waits_goes_batch_by_batch()
    self:take_vitals()
    self:store(1100)
    self.fleet.init()
    lu.assertEquals(self.fleet.step(), 0)
    lu.assertEquals(self:length("events:web1"), 500)
    lu.assertEquals(self.fleet.step(), 0)
    lu.assertEquals(self.fleet.step(), 125)
    lu.assertEquals(self:length("events:web1"), 1100)
end

function TestFleet:test_a_failure_waits_and_is_told_once()
    self:take_vitals()
    self:store(1)
    self.fleet.init()
    for _ = 1, 4 do -- the settings are two streams
        self.streams:fail("a:1: closed")
    end
    lu.assertEquals(self.fleet.step(), 10000)
    self.now = self.now + 9.875
    lu.assertEquals(self.fleet.step(), 125)
    lu.assertEquals(self:length("events:web1"), 0)
    self.now = self.now + 0.125
    for _ = 1, 4 do
        self.streams:fail("a:1: closed")
    end
    lu.assertEquals(self.fleet.step(), 20000)
    self.now = self.now + 20
    self.fleet.step()
    lu.assertEquals(self:length("events:web1"), 1)
    lu.assertEquals(self.log, {
        "message fleet: this is 'web1', reporting to 127.0.0.1:6379",
        "warning fleet: a:1: closed; trying again",
        "message fleet: no more trouble: a:1: closed",
    })
end

-- An hour away: a few attempts, and then all that was written meanwhile.
function TestFleet:test_a_server_that_is_away_for_an_hour()
    self:take_vitals()
    backoff.seconds = self.seconds
    self.fleet.init()
    self.fleet.step()
    local attempts, away = 0, self.now + 3600
    local call = self.streams.call
    self.streams.call = function(...)
        if self.now < away then
            attempts = attempts + 1
            return nil, "a:1: connection refused"
        end
        return call(...)
    end
    self.streams:reconnect()
    while self.now < away + 301 do
        self:store(1)
        self.now = self.now + math.max(self.fleet.step(), 1) / 1000
    end
    for _ = 1, 3 do
        self.fleet.step()
    end
    lu.assertEquals(self:length("events:web1"), #self.events)
    -- Three duties, four requests, some thirty times.
    lu.assertTrue(attempts >= 4 * 12 and attempts < 4 * 150, attempts)
end

function TestFleet:test_one_failing_duty_keeps_none_waiting()
    self:take_vitals()
    self.fleet.init()
    self:store(2)
    self.streams.wrong_type = "kza:vitals:web1"
    lu.assertEquals(self.fleet.step(), 125)
    lu.assertEquals(self:length("events:web1"), 2)
    lu.assertEquals(self.log[2],
        "warning fleet: WRONGTYPE no stream; trying again")
end

-- Said once, looked at with the vitals, and again once it is settled.
function TestFleet:test_events_that_are_held_back()
    self:take_vitals()
    self.fleet.init()
    self.streams:transaction(nil, nil, {
        { "XADD", "kza:events:web1", "5-0", "text", "theirs" } })
    self:store(2)
    lu.assertEquals(self.fleet.step(), 2500)
    self.now = self.now + 10
    self.fleet.step()
    lu.assertEquals(#self.log, 2)
    lu.assertStrMatches(self.log[2], "error fleet: events are held back: "
        .. "'kza:events:web1' has an event 5%-0 .*")
    self.streams.streams["kza:events:web1"] = nil
    self.now = self.now + 10
    self.fleet.step()
    lu.assertEquals(self.log[3], "message fleet: events are shipped again")
    lu.assertEquals(self:length("events:web1"), 2)
end

function TestFleet:test_other_servers()
    self:take_vitals()
    self.fleet.init()
    self.fleet.step()
    lu.assertEquals(self.links, 1)
    self.values["fleet.servers"] = "b:1"
    self.fleet.step()
    lu.assertEquals(self.links, 2)
    lu.assertTrue(self.closed)
    lu.assertEquals(self:length("vitals:web1"), 2)
end

function TestFleet:test_settings_are_there_from_the_start()
    self:take_vitals()
    self.streams:transaction(nil, nil, {
        { "XADD", "kza:settings", "1-0", "set", "fleet.interval=777" } })
    self.fleet.init()
    self.fleet.step()
    self.values["fleet.interval"] = nil
    self.fleet = load_fleet()
    self.fleet.init()
    lu.assertEquals(self.values["fleet.interval"], "777")
end

function TestFleet:test_wrong_settings_are_told()
    self.values["fleet.interval"] = "soon"
    self.fleet.init()
    lu.assertEquals(self.log[1],
        "warning fleet: fleet.interval is 'soon', not a number; using 1000")
end

function TestFleet:test_main_waits_until_it_is_asked_or_stopped()
    self:take_vitals()
    self.on_wait = function(count)
        self.is_stopping = count == 3
        return count == 1
    end
    self.fleet.init()
    self.fleet.main()
    self.fleet.shutdown()
    lu.assertEquals(self.waits, {
        "kza.HeartbeatNow 125", "kza.HeartbeatNow 125",
        "kza.HeartbeatNow 125",
    })
    lu.assertEquals(self:length("vitals:web1"), 2)
    lu.assertTrue(self.closed)
end

-- A request is told once; what asks later must know of it too.
function TestFleet:test_a_stop_in_the_middle_of_a_step()
    self:store(1)
    local call = self.streams.call
    self.streams.call = function(...)
        self.is_stopping = true
        lu.assertTrue(self.stopping())
        self.is_stopping = false
        return call(...)
    end
    self.on_wait = function() error("not to wait any more") end
    self.fleet.init()
    self.fleet.main()
    lu.assertEquals(self:length("vitals:web1"), 0)
    lu.assertEquals(#self.log, 1)
end
