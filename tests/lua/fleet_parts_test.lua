-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's parts that are values in and values out: settings,
-- waits, certificates, vitals, lines.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local backoff = require("fleet.backoff")
local certificate = require("fleet.certificate")
local config = require("fleet.config")
local json = require("dkjson")
local line = require("fleet.line")
local socket = require("socket")
local vitals = require("fleet.vitals")

TestConfig = {}

function TestConfig:setUp()
    self.dom, self.values = dom, {}
    local values = self.values
    dom = { Get = function(_, key) return values[key] end }
end

function TestConfig:tearDown()
    dom = self.dom
end

function TestConfig:test_defaults()
    local settings = config.read()
    lu.assertEquals(settings.servers, { "127.0.0.1:6379" })
    lu.assertEquals(settings.host, socket.dns.gethostname())
    lu.assertEquals(settings.consumer, socket.dns.gethostname())
    lu.assertEquals(settings.group, "collectors")
    lu.assertEquals(settings.interval, 1000)
    lu.assertEquals(settings.vitals_interval, 10000)
    lu.assertEquals(settings.vitals_length, 1000)
    lu.assertEquals(settings.claim, 30000)
    lu.assertFalse(settings.tls)
    lu.assertNil(settings.password)
    lu.assertNil(settings.ca)
    lu.assertEquals(config.complaints(), {})
end

function TestConfig:test_what_is_set()
    self.values["fleet.host"] = "web1"
    self.values["fleet.password"] = "secret"
    self.values["fleet.tls"] = "1"
    self.values["fleet.tls.ca"] = "/ca.pem"
    self.values["fleet.interval"] = "20"
    self.values["fleet.vitals.interval"] = 5000
    local settings = config.read()
    lu.assertEquals(settings.host, "web1")
    lu.assertEquals(settings.password, "secret")
    lu.assertTrue(settings.tls)
    lu.assertEquals(settings.ca, "/ca.pem")
    lu.assertEquals(settings.interval, 20)
    lu.assertEquals(settings.vitals_interval, 5000)
end

function TestConfig:test_servers()
    self.values["fleet.servers"] = "a, b:7000,10.0.0.1:1 [::1]:7 [fe80::1]"
    lu.assertEquals(config.read().servers, {
        "a:6379", "b:7000", "10.0.0.1:1", "[::1]:7", "[fe80::1]:6379",
    })
    lu.assertEquals(config.complaints(), {})
end

function TestConfig:test_words_that_are_no_servers_are_told()
    self.values["fleet.servers"] = "a:b,c:0,d:70000,;rm,[::1,e:1"
    lu.assertEquals(config.read().servers, { "e:1" })
    lu.assertEquals(#config.complaints(), 5)
    lu.assertEquals(config.complaints()[1],
        "fleet.servers: ';rm' is not host:port")
    self.values["fleet.servers"] = ","
    lu.assertEquals(config.complaints(), { "fleet.servers names no server" })
end

function TestConfig:test_numbers_out_of_range()
    for given, expected in pairs({
        ["0"] = 10, ["-1"] = 10, ["1e99"] = 86400000, ["99.9"] = 99,
        ["soon"] = 1000, [""] = 1000,
    }) do
        self.values["fleet.interval"] = given
        lu.assertEquals(config.read().interval, expected, given)
    end
    self.values["fleet.interval"] = "soon"
    lu.assertEquals(config.complaints(),
        { "fleet.interval is 'soon', not a number; using 1000" })
end

-- What changes nothing about the servers must not cost a connection.
function TestConfig:test_what_leads_to_the_servers()
    local before = config.read().connection
    self.values["fleet.interval"] = "20"
    lu.assertEquals(config.read().connection, before)
    for _, name in ipairs({
        "fleet.host", "fleet.password", "fleet.user", "fleet.tls.ca",
        "fleet.servers",
    }) do
        self.values[name] = "other"
        lu.assertNotEquals(config.read().connection, before, name)
        self.values[name] = nil
    end
    self.values["fleet.tls"] = true
    lu.assertNotEquals(config.read().connection, before)
end

TestBackoff = {}

function TestBackoff:test_from_a_second_to_five_minutes()
    local function least() return 0 end
    local function most() return 1 end
    local bounds = { 2, 4, 8, 16, 32, 64, 128, 256, 300, 300 }
    for failures, bound in ipairs(bounds) do
        lu.assertEquals(backoff.seconds(failures, least), 1)
        lu.assertEquals(backoff.seconds(failures, most), bound)
    end
    lu.assertEquals(backoff.seconds(5000, most), 300)
end

-- Ten waits with few different ones among them come from a broken source only.
function TestBackoff:test_agents_draw_different_waits()
    local seen, count = {}, 0
    for _ = 1, 10 do
        local seconds = backoff.seconds(20)
        lu.assertTrue(seconds >= 1 and seconds <= 300, seconds)
        count = count + (seen[seconds] and 0 or 1)
        seen[seconds] = true
    end
    lu.assertTrue(count > 5, count)
end

TestCertificate = {}

local function with_names(dns, addresses)
    return {
        extensions = function()
            return { ["2.5.29.17"] = {
                dNSName = dns, iPAddress = addresses,
            } }
        end,
    }
end

function TestCertificate:test_names()
    local cert = with_names({ "redis.example.org", "*.nodes.example.org" },
        { "10.0.0.1" })
    for host, expected in pairs({
        ["redis.example.org"] = true,
        ["Redis.Example.ORG"] = true,
        ["a.nodes.example.org"] = true,
        ["10.0.0.1"] = true,
        ["a.b.nodes.example.org"] = false,
        ["nodes.example.org"] = false,
        [".nodes.example.org"] = false,
        ["example.org"] = false,
        ["10.0.0.2"] = false,
        ["evilredis.example.org"] = false,
    }) do
        lu.assertEquals(certificate.names(cert, host), expected, host)
    end
end

function TestCertificate:test_one_without_names_matches_no_host()
    lu.assertFalse(certificate.names(with_names(), "a"))
    local bare = { extensions = function() return {} end }
    lu.assertFalse(certificate.names(bare, "a"))
end

TestVitals = {}

function TestVitals:test_fields()
    lu.assertEquals(vitals.fields({
        uptime = 93784.25,
        load = { one = 0.5, five = 1, fifteen = 12.345 },
        memory = { used = 2 ^ 40, total = 2 ^ 42 },
        disks = { { mount = "/", total = 2 ^ 50, free = 1 } },
    }), {
        "uptime", "93784", "load_1", "0.50", "load_5", "1.00",
        "load_15", "12.35", "memory_used", "1099511627776",
        "memory_total", "4398046511104",
        "disk_used:/", "1125899906842623", "disk_total:/", "1125899906842624",
    })
    lu.assertEquals(vitals.fields({ disks = {} }), {})
end

function TestVitals:test_the_stream_is_bounded()
    local asked
    local servers = {
        call = function(_, ...)
            asked = { ... }
            return "1-0"
        end,
    }
    lu.assertTrue(vitals.publish(servers, "k", 5000, { uptime = 1 }))
    lu.assertEquals(asked, { "k", "XADD", "k", "MAXLEN", "~", "5000", "*",
        "uptime", "1" })
end

-- An entry of a stream needs a field.
function TestVitals:test_a_host_that_gives_nothing_publishes_nothing()
    local servers = { call = function() error("not to be asked") end }
    lu.assertTrue(vitals.publish(servers, "k", 5000, { disks = {} }))
end

function TestVitals:test_a_failure_is_passed_on()
    local servers = { call = function() return nil, "why" end }
    local done, message = vitals.publish(servers, "k", 1, { uptime = 1 })
    lu.assertNil(done)
    lu.assertEquals(message, "why")
end

TestLine = {}

local ENTRY = {
    "12-0", { "number", "7", "severity", "2", "time", "1700000000",
        "time_ms", "1700000000123", "text", 'a "b"\n' },
}

function TestLine:test_of_an_event()
    lu.assertEquals(line.of("web1", ENTRY), '{"host":"web1","id":12,'
        .. '"number":7,"severity":2,"time":1700000000,'
        .. '"time_ms":1700000000123,"text":"a \\"b\\"\\n"}')
end

function TestLine:test_what_is_missing_is_null()
    lu.assertEquals(line.of("web1", { "5-3", { "text", "" } }),
        '{"host":"web1","id":5,"number":null,"severity":null,"time":null,'
        .. '"time_ms":null,"text":""}')
    lu.assertStrContains(line.of("w", { "1-0", { "number", "many" } }),
        '"number":null')
end

local BAD = "\239\191\189" -- stands for a byte that is no UTF-8

function TestLine:test_texts_are_utf8()
    local function shown(text)
        return json.decode(line.of("w", { "1-0", { "text", text } })).text
    end
    local valid = "a\195\164\226\130\172\240\157\132\158z"
    lu.assertEquals(shown(valid), valid)
    for text, expected in pairs({
        ["a\255b"] = "a" .. BAD .. "b",
        ["\195"] = BAD,                          -- cut short
        ["\240\157\132"] = BAD:rep(3),
        ["\192\128"] = BAD:rep(2),               -- longer than it need be
        ["\224\128\128"] = BAD:rep(3),
        ["\237\160\128"] = BAD:rep(3),           -- half of a surrogate pair
        ["\244\144\128\128"] = BAD:rep(4),       -- beyond the last character
        ["\0"] = "\0",
    }) do
        lu.assertEquals(shown(text), expected)
    end
end
