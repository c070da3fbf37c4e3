-- SPDX-License-Identifier: Apache-2.0
--
-- The example agent: what it computes, what it reads, and its three functions
-- with a table of the test in the place of the domain.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local probe = require("vitals.probe")
local report = require("vitals.report")

TestReport = {}

function TestReport:test_bytes()
    local expected = {
        [0] = "0.0 B", [1023] = "1023.0 B", [1024] = "1.0 KiB",
        [1536] = "1.5 KiB", [2 ^ 30] = "1.0 GiB", [2 ^ 60] = "1024.0 PiB",
    }
    for count, text in pairs(expected) do
        lu.assertEquals(report.bytes(count), text)
    end
end

function TestReport:test_duration()
    lu.assertEquals(report.duration(59.9), "0d 00:00")
    lu.assertEquals(report.duration(60), "0d 00:01")
    lu.assertEquals(report.duration(93784.5), "1d 02:03")
    lu.assertEquals(report.duration(400 * 86400), "400d 00:00")
end

function TestReport:test_percent()
    lu.assertEquals(report.percent(0, 7), 0)
    lu.assertEquals(report.percent(1, 3), 33)
    lu.assertEquals(report.percent(2, 3), 67)
    lu.assertEquals(report.percent(7, 7), 100)
end

function TestReport:test_line_shows_the_fullest_disk()
    local sample = {
        uptime = 93784,
        load = { one = 0.5, five = 1, fifteen = 12.345 },
        memory = { used = 2 ^ 30, total = 4 * 2 ^ 30 },
        disks = {
            { mount = "/", total = 2 ^ 30, free = 2 ^ 29 },
            { mount = "/var", total = 2 ^ 31, free = 2 ^ 28 },
        },
    }
    lu.assertEquals(report.line(sample), "up 1d 02:03, "
        .. "load 0.50 1.00 12.35, memory 25% of 4.0 GiB, "
        .. "disk /var 88% of 2.0 GiB")
end

function TestReport:test_line_leaves_out_what_is_not_known()
    lu.assertEquals(report.line({}), "")
    lu.assertEquals(report.line({ uptime = 0, disks = {} }), "up 0d 00:00")
end

TestProbe = {}

function TestProbe:test_every_sense_of_this_host()
    local sample = probe.sample()
    lu.assertTrue(sample.uptime > 0)
    lu.assertTrue(sample.load.one >= 0)
    lu.assertTrue(sample.memory.total > sample.memory.used)
    lu.assertEquals(sample.disks[1].mount, "/")
    for _, disk in ipairs(sample.disks) do
        lu.assertTrue(disk.total > 0 and disk.free <= disk.total, disk.mount)
    end
end

-- Sizes are those that df tells, with and without the module for the call.
function TestProbe:test_sizes_without_the_module()
    package.loaded["vitals.probe"] = nil
    local kept = package.loaded["posix.sys.statvfs"]
    package.loaded["posix.sys.statvfs"] = nil
    package.preload["posix.sys.statvfs"] = function() error("not here") end
    local bare = require("vitals.probe")
    package.preload["posix.sys.statvfs"] = nil
    package.loaded["posix.sys.statvfs"] = kept

    local with, without = probe.disks(), bare.disks()
    lu.assertTrue(#with > 0)
    lu.assertEquals(#without, #with)
    for i, disk in ipairs(with) do
        lu.assertEquals(without[i].mount, disk.mount)
        lu.assertEquals(without[i].total, disk.total)
    end
end

-- A host without the sources: every file is missing.
function TestProbe:test_a_host_without_the_sources()
    local open = io.open
    io.open = function() return nil, "no such file" end
    local ok, sample = pcall(probe.sample)
    io.open = open
    lu.assertTrue(ok, sample)
    lu.assertNil(sample.load)
    lu.assertNil(sample.memory)
    lu.assertNil(sample.uptime)
end

TestAgent = {}

function TestAgent:setUp()
    self.dom, self.print = dom, print
    self.log, self.printed, self.waits = {}, {}, {}
    local values, turns = {}, 3
    self.values = values
    dom = {
        Get = function(_, key) return values[key] end,
        Log = function(_, level, text)
            self.log[#self.log + 1] = level .. " " .. text
        end,
        Wait = function(_, key, ms)
            self.waits[#self.waits + 1] = key .. " " .. ms
            return false
        end,
        Sleep = function()
            turns = turns - 1
            return turns > 0
        end,
    }
    print = function(text) self.printed[#self.printed + 1] = text end
    package.loaded["kz_agent"] = nil
    self.agent = require("kz_agent")
end

function TestAgent:tearDown()
    dom, print = self.dom, self.print
end

function TestAgent:test_runs_until_it_is_asked_to_end()
    lu.assertNil(self.agent.init())
    lu.assertNil(self.agent.main())
    lu.assertNil(self.agent.shutdown())
    lu.assertEquals(#self.printed, 3)
    lu.assertStrMatches(self.printed[1], "%d%d:%d%d:%d%d  up .*load .*memory "
        .. ".*disk .*")
    lu.assertEquals(self.log[1], "message vitals: watching, every 10000 ms")
    lu.assertStrMatches(self.log[2], "info vitals: up .*")
    lu.assertEquals(self.log[#self.log],
        "message vitals: stopped after 3 heartbeats")
    lu.assertEquals(self.waits[1], "kza.HeartbeatNow 10000")
end

function TestAgent:test_the_interval_comes_from_the_domain()
    local intervals = {
        ["5000"] = 5000, ["1500.7"] = 1500, ["0"] = 100, ["-5"] = 100,
        ["1e999"] = 86400000, ["soon"] = 10000,
    }
    for text, expected in pairs(intervals) do
        self:tearDown()
        self:setUp()
        self.values["vitals.interval"] = text
        self.agent.main()
        lu.assertEquals(self.waits[1], "kza.HeartbeatNow " .. expected)
    end
end

function TestAgent:test_a_wrong_interval_is_told()
    self.values["vitals.interval"] = "soon"
    self.agent.init()
    lu.assertEquals(self.log[1],
        "warning vitals.interval is 'soon', not a number; using 10000")
end
