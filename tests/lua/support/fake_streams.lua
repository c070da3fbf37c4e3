-- SPDX-License-Identifier: Apache-2.0
--
-- Streams in memory that look like the fleet example's servers: as much of
-- Redis as the example asks for.

local fake_streams = {}
fake_streams.__index = fake_streams

local function problem(text)
    return { error = text }
end

local function number_of(id)
    local first, second = id:match("^(%d+)%-(%d+)$")
    return tonumber(first) * 1e6 + tonumber(second)
end

function fake_streams.new()
    return setmetatable({
        streams = {},   -- by key: {last=, entries=}
        client = {},    -- the connection, anew after each that broke
        failures = {},  -- messages of the next calls, instead of replies
        transactions = 0,
    }, fake_streams)
end

-- Another connection from now on.
function fake_streams:reconnect()
    self.client = {}
end

function fake_streams:fail(message)
    table.insert(self.failures, message)
end

-- The ids in a stream, the part before the dash.
function fake_streams:ids(key)
    local ids = {}
    for i, entry in ipairs((self.streams[key] or { entries = {} }).entries) do
        ids[i] = tonumber(entry[1]:match("^%d+"))
    end
    return ids
end

local commands = {}

function commands:XADD(key, ...)
    local words, stream = { ... }, self.streams[key]
    if words[1] == "NOMKSTREAM" then
        table.remove(words, 1)
        if not stream then
            return nil
        end
    end
    stream = stream or { last = "0-0", entries = {} }
    local id = table.remove(words, 1)
    if number_of(id) <= number_of(stream.last) then
        return problem("ERR The ID specified in XADD is equal or smaller than "
            .. "the target stream top item")
    end
    self.streams[key] = stream
    stream.last = id
    table.insert(stream.entries, { id, words })
    return id
end

function commands:XINFO(_, key)
    local stream = self.streams[key]
    if not stream then
        return problem("ERR no such key")
    end
    return { "length", #stream.entries, "last-generated-id", stream.last,
        "first-entry", stream.entries[1],
        "last-entry", stream.entries[#stream.entries] }
end

function commands:XRANGE(key, from, to)
    local found = {}
    for _, entry in ipairs((self.streams[key] or { entries = {} }).entries) do
        local number = number_of(entry[1])
        if number >= number_of(from) and number <= number_of(to) then
            found[#found + 1] = entry
        end
    end
    return found
end

function commands:XREAD(_, count, _, key, after)
    local found = {}
    for _, entry in ipairs((self.streams[key] or { entries = {} }).entries) do
        if number_of(entry[1]) > number_of(after)
            and #found < tonumber(count) then
            found[#found + 1] = entry
        end
    end
    return #found > 0 and { { key, found } } or nil
end

local function perform(self, command)
    local key = command[1] == "XINFO" and command[3] or command[2]
    if command[1] ~= "XREAD" and self.wrong_type == key then
        return problem("WRONGTYPE no stream")
    end
    return commands[command[1]](self, table.unpack(command, 2))
end

-- What the servers offer ------------------------------------------------------

function fake_streams:client_for()
    return self.client
end

function fake_streams:call(_, ...)
    if #self.failures > 0 then
        return nil, table.remove(self.failures, 1)
    end
    local reply = perform(self, { ... })
    if type(reply) == "table" and reply.error then
        return nil, reply.error, self.client
    end
    return reply, nil, self.client
end

-- `before` is called once, between the look for the place and the batch.
function fake_streams:transaction(_, _, list)
    if self.before then
        local before = self.before
        self.before = nil
        before()
    end
    if #self.failures > 0 then
        return nil, table.remove(self.failures, 1)
    end
    self.transactions = self.transactions + 1
    local replies = {}
    for i, command in ipairs(list) do
        replies[i] = perform(self, command)
    end
    return replies
end

return fake_streams
