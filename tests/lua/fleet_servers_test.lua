-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's servers: which one is asked, and what a redirection or
-- a failure changes. The clients are the test's own and follow a script.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local connection = require("fleet.connection")
local host = require("kza.host")

-- Replies by "host:port": functions of the commands, one for each time that
-- the server is asked. What was asked goes to `asked`.
local script, asked, opened

local fake_client = {}

function fake_client.open(server)
    opened[#opened + 1] = server
    if not script[server] then
        return nil, "connection refused"
    end
    return {
        server = server,
        ask = function(_, commands)
            local words = {}
            for i, command in ipairs(commands) do
                words[i] = table.concat(command, " ")
            end
            asked[#asked + 1] = server .. ": " .. table.concat(words, ", ")
            local reply = table.remove(script[server], 1)
            if type(reply) == "string" then
                return nil, reply
            end
            return assert(reply, "nothing left to answer at " .. server)
        end,
        close = function(self) self.is_closed = true end,
    }
end

TestServers = {}

function TestServers:setUp()
    script, asked, opened = {}, {}, {}
    self.kept = package.loaded["fleet.client"]
    package.loaded["fleet.client"] = fake_client
    package.loaded["fleet.servers"] = nil
    self.module = require("fleet.servers")
    self.clock, self.now = host.clock, 0
    host.clock = function() return self.now end
end

function TestServers:tearDown()
    host.clock = self.clock
    package.loaded["fleet.client"] = self.kept
    package.loaded["fleet.servers"] = nil
end

function TestServers:new(list)
    return self.module.new({ servers = list }, function() return false end)
end

local function problem(text)
    return { error = text }
end

function TestServers:test_a_reply_and_an_error()
    script["a:1"] = { { "one" }, { problem("ERR no") }, { nil } }
    local servers = self:new({ "a:1" })
    local reply, message, at = servers:call("k", "GET", "k")
    lu.assertEquals({ reply, message, at.server }, { "one", nil, "a:1" })
    reply, message = servers:call("k", "GET", "k")
    lu.assertEquals({ reply, message }, { nil, "ERR no" })
    lu.assertEquals({ servers:call("k", "GET", "k") }, { nil, nil, at })
    lu.assertEquals(asked[1], "a:1: GET k")
    lu.assertEquals(opened, { "a:1" })
end

function TestServers:test_the_first_that_can_be_reached()
    script["b:1"] = { { "one" }, { "two" } }
    local servers = self:new({ "a:1", "b:1", "c:1" })
    lu.assertEquals(servers:call("k", "GET", "k"), "one")
    lu.assertEquals(servers:call("k", "GET", "k"), "two")
    lu.assertEquals(opened, { "a:1", "b:1" })
end

-- Three duties that ask for three keys wait for a silent server once.
function TestServers:test_one_that_cannot_be_reached_is_left_alone()
    local servers = self:new({ "a:1" })
    for _ = 1, 3 do
        local reply, message = servers:call("k", "GET", "k")
        lu.assertNil(reply)
        lu.assertEquals(message, "a:1: connection refused")
    end
    lu.assertEquals(#opened, 1)
    self.now = 1
    servers:call("k", "GET", "k")
    lu.assertEquals(#opened, 2)
    servers:try_again()
    servers:call("k", "GET", "k")
    lu.assertEquals(#opened, 3)
end

function TestServers:test_no_server_at_all()
    lu.assertEquals({ self:new({}):call("k", "GET", "k") },
        { nil, "no server is set" })
end

function TestServers:test_moved_is_followed_and_remembered()
    script["a:1"] = { { problem("MOVED 866 b:2") } }
    script["b:2"] = { { "one" }, { "two" } }
    local servers = self:new({ "a:1" })
    lu.assertEquals(servers:call("k", "GET", "k"), "one")
    lu.assertEquals(servers:call("k", "GET", "k"), "two")
    lu.assertEquals(asked, { "a:1: GET k", "b:2: GET k", "b:2: GET k" })
end

function TestServers:test_moved_to_an_address()
    for told, expected in pairs({
        ["MOVED 1 10.0.0.1:2"] = "10.0.0.1:2",
        ["MOVED 1 fe80::1:2"] = "[fe80::1]:2",
        ["MOVED 1 :2"] = "a:2",
    }) do
        script = { ["a:1"] = { { problem(told) } },
            [expected] = { { "one" } } }
        lu.assertEquals(self:new({ "a:1" }):call("k", "GET", "k"), "one")
    end
end

function TestServers:test_a_circle_ends()
    script["a:1"], script["b:2"] = {}, {}
    for i = 1, 5 do
        script["a:1"][i] = { problem("MOVED 1 b:2") }
        script["b:2"][i] = { problem("MOVED 1 a:1") }
    end
    lu.assertEquals({ self:new({ "a:1" }):call("k", "GET", "k") },
        { nil, "k: redirected too often" })
    lu.assertEquals(#asked, 5)
end

function TestServers:test_ask_is_followed_once()
    script["a:1"] = { { problem("ASK 866 b:2") }, { "back" } }
    script["b:2"] = { { true, "one" } }
    local servers = self:new({ "a:1" })
    lu.assertEquals(servers:call("k", "GET", "k"), "one")
    lu.assertEquals(servers:call("k", "GET", "k"), "back")
    lu.assertEquals(asked, { "a:1: GET k", "b:2: ASKING, GET k", "a:1: GET k" })
end

-- The key may be elsewhere by now, which any of the servers knows.
function TestServers:test_a_connection_that_breaks()
    script["a:1"] = { { problem("MOVED 1 b:2") }, { problem("MOVED 1 c:3") } }
    script["b:2"] = { { "one" }, "closed" }
    script["c:3"] = { { "two" } }
    local servers = self:new({ "a:1" })
    servers:call("k", "GET", "k")
    lu.assertEquals({ servers:call("k", "GET", "k") }, { nil, "b:2: closed" })
    lu.assertEquals(servers:call("k", "GET", "k"), "two")
end

function TestServers:test_a_server_of_the_cluster_that_is_gone()
    script["a:1"] = { { problem("MOVED 1 b:2") }, { "one" } }
    local servers = self:new({ "a:1" })
    lu.assertEquals({ servers:call("k", "GET", "k") },
        { nil, "b:2: connection refused" })
    lu.assertEquals(servers:call("k", "GET", "k"), "one")
end

-- What is the agent's own doing is not the server's trouble.
function TestServers:test_a_stop_names_no_server()
    script["a:1"] = { connection.STOPPED }
    lu.assertEquals({ self:new({ "a:1" }):call("k", "GET", "k") },
        { nil, connection.STOPPED })
end

-- Transactions ---------------------------------------------------------------

local QUEUED = { queued = true }

function TestServers:transaction(replies)
    script["a:1"] = { replies }
    local servers = self:new({ "a:1" })
    local at = assert(servers:client_for("k"))
    return servers, servers:transaction(at, "k", { { "X", "1" }, { "X", "2" } })
end

function TestServers:test_a_transaction()
    local _, replies = self:transaction({
        true, QUEUED, QUEUED, { "1-0", problem("ERR 2") },
    })
    lu.assertEquals(replies, { "1-0", problem("ERR 2") })
    lu.assertEquals(asked, { "a:1: MULTI, X 1, X 2, EXEC" })
end

function TestServers:test_a_transaction_that_is_refused()
    local _, replies, message = self:transaction({
        true, QUEUED, problem("OOM full"), problem("EXECABORT discarded"),
    })
    lu.assertNil(replies)
    lu.assertEquals(message, "OOM full")
end

function TestServers:test_a_transaction_is_not_redirected()
    script["b:2"] = { { "there" } }
    local servers, replies, message = self:transaction({
        true, problem("MOVED 1 b:2"), problem("MOVED 1 b:2"),
        problem("EXECABORT discarded"),
    })
    lu.assertNil(replies)
    lu.assertEquals(message, self.module.MOVED)
    lu.assertEquals(servers:call("k", "GET", "k"), "there")
end

-- A key that is being moved: each command by itself, none after a failure.
function TestServers:test_a_transaction_for_a_key_that_is_being_moved()
    script["b:2"] = { { true, "1-0" }, { true, problem("OOM") } }
    local _, replies = self:transaction({
        true, problem("ASK 1 b:2"), problem("ASK 1 b:2"),
        problem("EXECABORT discarded"),
    })
    lu.assertEquals(replies, { "1-0", problem("OOM") })
    lu.assertEquals({ asked[2], asked[3], asked[4] },
        { "b:2: ASKING, X 1", "b:2: ASKING, X 2", nil })
end

function TestServers:test_close()
    script["a:1"] = { { "one" }, { "two" } }
    local servers = self:new({ "a:1" })
    local _, _, at = servers:call("k", "GET", "k")
    servers:close()
    lu.assertTrue(at.is_closed)
    servers:call("k", "GET", "k")
    lu.assertEquals(#opened, 2)
end
