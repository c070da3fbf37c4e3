-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's connections: to a socket of the test's own, which does
-- or does not answer.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local client = require("fleet.client")
local connection = require("fleet.connection")
local host = require("kza.host")
local names = require("fleet.names")
local socket = require("socket")

local function never() return false end

-- True from the given number of questions on.
local function after(count)
    return function()
        count = count - 1
        return count < 0
    end
end

-- A listening socket and its "host:port".
local function listen(backlog)
    local server = socket.tcp()
    assert(server:bind("127.0.0.1", 0))
    assert(server:listen(backlog or 8))
    local _, port = server:getsockname()
    return server, "127.0.0.1:" .. port
end

-- A step is a tenth of a second; this leaves room for a busy machine.
local function assert_at_once(started)
    local seconds = host.clock() - started
    lu.assertTrue(seconds < 1, seconds)
end

TestConnection = {}

function TestConnection:setUp()
    self.server, self.name = listen()
end

function TestConnection:tearDown()
    self.server:close()
end

-- Connects; answers both ends.
function TestConnection:pair(stopping)
    local ours = assert(connection.open(self.name, {}, stopping or never))
    return ours, assert(self.server:accept())
end

function TestConnection:test_both_directions()
    local ours, other = self:pair()
    lu.assertEquals(ours:send("ask\r\n"), 5)
    lu.assertEquals(other:receive("*l"), "ask")
    other:send("one\r\ntwo\0\r\n")
    lu.assertEquals(ours:receive("*l"), "one")
    lu.assertEquals(ours:receive(6), "two\0\r\n")
    ours:close()
    local _, message = other:receive("*l")
    lu.assertEquals(message, "closed")
    other:close()
end

-- What comes in parts, each after a step in which nothing came.
function TestConnection:test_parts_are_put_together()
    local parts = { "ab", "cd", "e\n", "fg", "h" }
    local other
    local ours = assert(connection.open(self.name, {}, function()
        other:send(table.remove(parts, 1) or "")
        return false
    end))
    other = assert(self.server:accept())
    lu.assertEquals(ours:receive("*l"), "abcde")
    lu.assertEquals(ours:receive(3), "fgh")
    lu.assertEquals(#parts, 0)
    ours:close()
    other:close()
end

-- More than the system takes at once, to a reader who begins late.
function TestConnection:test_much_is_sent_whole()
    local text = ("0123456789"):rep(2000000)
    local received, other = {}, nil
    local ours = assert(connection.open(self.name, {}, function()
        other:settimeout(0)
        local all, _, part = other:receive(#text)
        received[#received + 1] = all or part
        return false
    end))
    other = assert(self.server:accept())
    lu.assertEquals(ours:send(text), #text)
    ours:close()
    other:settimeout(5)
    received[#received + 1] = other:receive("*a")
    lu.assertTrue(table.concat(received) == text)
    other:close()
end

function TestConnection:test_the_other_end_goes()
    local ours, other = self:pair()
    other:send("half")
    other:close()
    local line, message = ours:receive("*l")
    lu.assertNil(line)
    lu.assertEquals(message, "closed")
    ours:close()
end

function TestConnection:test_a_server_that_is_not_there()
    self.server:close()
    local made, message = connection.open(self.name, {}, never)
    lu.assertNil(made)
    lu.assertEquals(message, "connection refused")
end

-- The clock is the test's, which lets three seconds pass with each look.
function TestConnection:test_a_server_that_does_not_answer()
    local ours, other = self:pair()
    local clock, now = host.clock, 0
    host.clock = function()
        now = now + 3
        return now
    end
    local line, message = ours:receive("*l")
    host.clock = clock
    lu.assertNil(line)
    lu.assertEquals(message, "no answer")
    ours:close()
    other:close()
end

function TestConnection:test_a_stop_while_receiving()
    local ours, other = self:pair(after(2))
    local started = host.clock()
    local line, message = ours:receive("*l")
    lu.assertNil(line)
    lu.assertEquals(message, connection.STOPPED)
    assert_at_once(started)
    ours:close()
    other:close()
end

function TestConnection:test_a_stop_while_sending()
    local text = ("x"):rep(50000000)
    local ours, other = self:pair(after(2))
    local started = host.clock()
    local sent, message = ours:send(text)
    lu.assertNil(sent)
    lu.assertEquals(message, connection.STOPPED)
    assert_at_once(started)
    ours:close()
    other:close()
end

-- A full queue of connections drops the packets of the next one.
function TestConnection:test_a_stop_while_connecting()
    local server, name = listen(0)
    local held = {}
    for i = 1, 4 do
        held[i] = socket.tcp()
        held[i]:settimeout(0)
        held[i]:connect(name:match("^(.*):(.*)$"))
    end
    local asked = 0
    local started = host.clock()
    local made, message = connection.open(name, {}, function()
        asked = asked + 1
        return asked >= 2
    end)
    lu.assertNil(made)
    lu.assertEquals(message, connection.STOPPED)
    lu.assertEquals(asked, 2)
    assert_at_once(started)
    for _, one in ipairs(held) do
        one:close()
    end
    server:close()
end

function TestConnection:test_a_stop_in_the_handshake()
    local started = host.clock()
    local made, message = connection.open(self.name, { tls = true }, after(2))
    lu.assertNil(made)
    lu.assertEquals(message, connection.STOPPED)
    assert_at_once(started)
end

function TestConnection:test_an_authority_that_is_not_there()
    local made, message = connection.open(self.name,
        { tls = true, ca = "/none.pem" }, never)
    lu.assertNil(made)
    lu.assertStrMatches(message, "TLS: .*")
end

TestNames = {}

local function going_on()
    socket.sleep(0.01)
    return true
end

function TestNames:test_addresses_stand_for_themselves()
    local function never_asked() error("no reason to wait") end
    lu.assertEquals(names.addresses("10.0.0.1", never_asked), { "10.0.0.1" })
    lu.assertEquals(names.addresses("::1", never_asked), { "::1" })
end

function TestNames:test_a_name()
    local found = names.addresses("localhost", going_on)
    lu.assertTrue(found[1] == "127.0.0.1" or found[1] == "::1", found[1])
end

function TestNames:test_what_is_no_name()
    local found, message = names.addresses("a;rm -rf /", going_on)
    lu.assertNil(found)
    lu.assertEquals(message, "no name of a host")
end

-- A program `getent` of the test's own stands for a name server.
function TestNames:with_getent(script, pause)
    local directory = support.directory()
    support.write(directory .. "/getent", "#!/bin/sh\n" .. script .. "\n")
    support.shell("chmod +x " .. directory .. "/getent")
    local execute = os.execute
    -- luacheck: push ignore 122
    os.execute = function(command)
        return execute("PATH=" .. directory .. ":$PATH; " .. command)
    end
    local found, message = names.addresses("a", pause)
    os.execute = execute
    -- luacheck: pop
    return found, message
end

function TestNames:test_each_address_once()
    lu.assertEquals(self:with_getent("printf '10.0.0.1 STREAM a\\n"
        .. "10.0.0.1 DGRAM\\n10.0.0.2 STREAM\\n'", going_on),
        { "10.0.0.1", "10.0.0.2" })
end

function TestNames:test_a_name_that_is_not_known()
    local found, message = self:with_getent("exit 2", going_on)
    lu.assertNil(found)
    lu.assertEquals(message, "the name is not known")
end

function TestNames:test_a_stop_while_a_name_server_is_silent()
    local started = host.clock()
    local found, message = self:with_getent("sleep 3", function()
        return nil, "stop"
    end)
    lu.assertNil(found)
    lu.assertEquals(message, "stop")
    assert_at_once(started)
end

TestClient = {}

function TestClient:setUp()
    self.server, self.name = listen()
end

function TestClient:tearDown()
    self.server:close()
    if self.other then
        self.other:close()
        self.other = nil
    end
end

-- A client whose other end sends its answers as soon as it is connected.
function TestClient:answered(answers, options)
    local function serve()
        if not self.other then
            self.server:settimeout(0)
            self.other = self.server:accept()
            if self.other then
                self.other:send(answers)
            end
        end
        return false
    end
    local made, message = client.open(self.name, options or {}, serve)
    serve()
    return made, message
end

-- What the client has sent.
function TestClient:sent()
    self.other:settimeout(0)
    local all, _, part = self.other:receive("*a")
    return all or part
end

function TestClient:test_many_commands_and_their_replies()
    local made = self:answered("+OK\r\n:7\r\n$-1\r\n"
        .. "-ERR no\r\n*3\r\n$1\r\na\r\n-ERR in\r\n$2\r\n\r\n\r\n"
        .. "+QUEUED\r\n*-1\r\n")
    local replies = made:ask({
        { "A" }, { "B", "x", "" }, { "C" }, { "D" }, { "E" }, { "F" }, { "G" },
    })
    lu.assertEquals(replies[1], true)
    lu.assertEquals(replies[2], 7)
    lu.assertNil(replies[3])
    lu.assertEquals(replies[4], { error = "ERR no" })
    lu.assertEquals(replies[5], { "a", { error = "ERR in" }, "\r\n" })
    lu.assertEquals(replies[6], { queued = true })
    lu.assertNil(replies[7])
    local first = "*1\r\n$1\r\nA\r\n*3\r\n$1\r\nB\r\n$1\r\nx\r\n$0\r\n\r\n*1"
    lu.assertEquals(self:sent():sub(1, #first), first)
    made:close()
end

function TestClient:test_a_connection_that_breaks()
    local made = self:answered("+OK\r\n$5\r\nab")
    self.other:close()
    local replies, message = made:ask({ { "A" }, { "B" } })
    lu.assertNil(replies)
    lu.assertEquals(message, "closed")
    made:close()
end

function TestClient:test_a_password()
    local made = self:answered("+OK\r\n", { password = "p w" })
    lu.assertEquals(self:sent(), "*2\r\n$4\r\nAUTH\r\n$3\r\np w\r\n")
    made:close()
end

function TestClient:test_a_user_with_a_password()
    local made = self:answered("+OK\r\n", { user = "u", password = "p" })
    lu.assertEquals(self:sent(),
        "*3\r\n$4\r\nAUTH\r\n$1\r\nu\r\n$1\r\np\r\n")
    made:close()
end

function TestClient:test_a_wrong_password()
    local made, message = self:answered("-WRONGPASS no\r\n",
        { password = "p" })
    lu.assertNil(made)
    lu.assertEquals(message, "WRONGPASS no")
end
