-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's settings from the server: layers, memory, what is
-- refused. Streams and domain are the test's own.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local fake_streams = require("fake_streams")
local settings = require("fleet.settings")

local ALL, OWN = "kza:settings", "kza:settings:web1"

TestSettings = {}

function TestSettings:setUp()
    self.dom, self.values, self.log = dom, {}, {}
    dom = {
        Set = function(_, name, value) self.values[name] = value end,
        Log = function(_, level, text)
            self.log[#self.log + 1] = level .. " " .. text
        end,
    }
    self.path = support.directory() .. "/settings.json"
    self.streams = fake_streams.new()
    self.count = 0
    self.settings = settings.new(self.path, "web1")
end

function TestSettings:tearDown()
    dom = self.dom
end

-- An entry of a stream: "set", "name=value", "unset", "name"...
function TestSettings:add(key, ...)
    self.count = self.count + 1
    self.streams:call(key, "XADD", key, self.count .. "-0", ...)
end

function TestSettings:follow()
    lu.assertTrue(self.settings:follow(self.streams, ALL, OWN))
end

-- What the next run does before it has a server.
function TestSettings:restart(host)
    for name in pairs(self.values) do
        self.values[name] = nil
    end
    self.settings = settings.new(self.path, host or "web1")
    self.settings:recall()
end

function TestSettings:test_none()
    self:follow()
    self:restart()
    lu.assertEquals(self.values, {})
    lu.assertEquals(self.log, {})
end

function TestSettings:test_set_and_unset()
    self.values.c = "local"
    self:add(ALL, "set", "a=1", "set", "b=x=y ", "set", "e=")
    self:add(ALL, "unset", "a", "set", "d=1", "set", "d=2", "unset", "c")
    self:follow()
    lu.assertEquals(self.values, { b = "x=y ", d = "2", e = "" })
end

function TestSettings:test_the_order_within_an_entry_counts()
    self:add(ALL, "set", "a=1", "unset", "a", "unset", "b", "set", "b=1")
    self:follow()
    lu.assertEquals(self.values, { b = "1" })
end

function TestSettings:test_each_entry_is_applied_once()
    self:add(ALL, "set", "a=1")
    self:follow()
    self.values.a = "changed on the host"
    self:follow()
    self:add(ALL, "set", "b=1")
    self:follow()
    lu.assertEquals(self.values, { a = "changed on the host", b = "1" })
end

function TestSettings:test_the_hosts_own_win()
    self:add(OWN, "set", "a=own")
    self:add(ALL, "set", "a=all", "set", "b=all")
    self:follow()
    lu.assertEquals(self.values, { a = "own", b = "all" })
    self:add(ALL, "set", "a=all again")
    self:follow()
    lu.assertEquals(self.values.a, "own")
end

-- What holds for all shows again; without that the key is not set.
function TestSettings:test_the_hosts_own_are_taken_back()
    self:add(ALL, "set", "a=all")
    self:add(OWN, "set", "a=own", "set", "b=own")
    self:follow()
    self:add(OWN, "unset", "a", "unset", "b")
    self:follow()
    lu.assertEquals(self.values, { a = "all" })
    self:add(ALL, "unset", "a")
    self:follow()
    lu.assertEquals(self.values, {})
end

function TestSettings:test_many()
    for i = 1, 250 do
        self:add(ALL, "set", "a=" .. i)
    end
    self:follow()
    lu.assertEquals(self.values, { a = "250" })
end

-- Memory ---------------------------------------------------------------------

function TestSettings:test_a_restart_without_the_server()
    self:add(ALL, "set", "a=1", "set", "b=1", "unset", "c")
    self:add(OWN, "set", "b=\255\0own", "set", "d=1")
    self:follow()
    self:add(OWN, "unset", "d")
    self:follow()
    self:restart()
    lu.assertEquals(self.values, { a = "1", b = "\255\0own" })
    self.values.c = "from the configuration"
    self.settings:recall()
    lu.assertNil(self.values.c)
    self:add(ALL, "set", "d=2")
    self:follow()
    lu.assertEquals(self.values.d, "2")
    lu.assertEquals(self.values.a, "1")
end

function TestSettings:test_a_restart_asks_for_what_is_new_only()
    self:add(ALL, "set", "a=1")
    self:follow()
    self:restart()
    self.values.a = "changed on the host"
    self:follow()
    lu.assertEquals(self.values.a, "changed on the host")
end

function TestSettings:test_a_host_with_another_name()
    self:add(ALL, "set", "a=1")
    self:add(OWN, "set", "b=1")
    self:follow()
    self:restart("web2")
    lu.assertEquals(self.values, { a = "1" })
end

function TestSettings:test_a_file_that_cannot_be_understood()
    for _, text in ipairs({ "", "{", "[1]", '{"all":{},"own":{}}' }) do
        support.write(self.path, text)
        self:restart()
        lu.assertEquals(self.log[#self.log], "error fleet: '" .. self.path
            .. "' cannot be understood; the settings come from the server "
            .. "again")
        self:add(ALL, "set", "a=" .. text)
        self:follow()
        lu.assertEquals(self.values.a, text)
    end
end

function TestSettings:test_a_file_that_cannot_be_written()
    self.settings = settings.new("/none/settings.json", "web1")
    self:add(ALL, "set", "a=1")
    self:follow()
    lu.assertEquals(self.values, { a = "1" })
    lu.assertStrMatches(self.log[1],
        "error fleet: settings are not remembered: .*none.*")
end

-- What it does not take ------------------------------------------------------

function TestSettings:test_what_is_refused()
    for _, field in ipairs({
        { "set", "app.name=x", "'app.name' is set on the host alone" },
        { "unset", "kza.HeartbeatNow",
            "'kza.HeartbeatNow' is set on the host alone" },
        { "set", "fleet.host=x", "'fleet.host' is set on the host alone" },
        { "set", "novalue", "a setting without a name" },
        { "set", "=value", "a setting without a name" },
        { "unset", "", "a setting without a name" },
        { "put", "a=1", "'put' is neither set nor unset" },
    }) do
        self:add(ALL, field[1], field[2], "set", "good=" .. self.count)
        self:follow()
        lu.assertEquals(self.values, { good = tostring(self.count - 1) })
        lu.assertEquals(self.log[#self.log - 1], ("warning fleet: settings "
            .. "%d-0: %s"):format(self.count, field[3]))
    end
end

function TestSettings:test_no_value_is_in_the_log()
    self:add(ALL, "set", "fleet.password=secret")
    self:follow()
    self:restart()
    lu.assertEquals(self.log, {
        "info fleet: settings set 'fleet.password'",
        "info fleet: settings set 'fleet.password'",
    })
end

-- Failures -------------------------------------------------------------------

function TestSettings:test_a_server_that_fails()
    self:add(OWN, "set", "a=1")
    self.streams:fail("closed")
    lu.assertEquals({ self.settings:follow(self.streams, ALL, OWN) },
        { nil, "closed" })
    -- The other stream could be read.
    lu.assertEquals(self.values, { a = "1" })
end

function TestSettings:test_nothing_is_lost_when_it_fails_half_way()
    for i = 1, 150 do
        self:add(ALL, "set", ("k%d=1"):format(i))
    end
    local call, calls = self.streams.call, 0
    self.streams.call = function(...)
        calls = calls + 1
        if calls == 2 then
            return nil, "closed"
        end
        return call(...)
    end
    lu.assertEquals({ self.settings:follow(self.streams, ALL, OWN) },
        { nil, "closed" })
    self:follow()
    for i = 1, 150 do
        lu.assertEquals(self.values["k" .. i], "1")
    end
end
