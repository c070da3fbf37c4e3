-- SPDX-License-Identifier: Apache-2.0
--
-- Reads the events of all hosts whose streams are on one server, as a member of
-- a consumer group.
--
-- The server gives each event to one member of the group and keeps it as
-- pending until that member says that it is done. What stays pending for too
-- long was taken by a member that is gone, and goes to one that asks for it.

local Group = {}
Group.__index = Group

local group = {}

local KEYS = "kza:events:"

-- Streams that are asked for at once, and events of one stream in a reply.
local STREAMS = 50
local EVENTS = 100

local SCANNED = 1000 -- keys that one step of a search looks at

--- `settings` name group and consumer; `client` is that of the server, and
--- `handle(host, entry)` is called with each event. `finish()` is called
--- before they are reported as done: it answers true once they are safe.
function group.new(servers, client, settings, handle, finish)
    return setmetatable({
        servers = servers,
        client = client,
        settings = settings,
        handle = handle,
        finish = finish,
        streams = {}, -- keys, in the order in which they were found
        known = {},   -- the same by name
    }, Group)
end

function Group:ask(commands)
    return self.servers:ask(self.client, commands)
end

-- Streams --------------------------------------------------------------------

local function error_of(reply)
    return type(reply) == "table" and reply.error or nil
end

-- Whether an error says that a key is not what it was, or not here: it was
-- deleted, replaced, or moved to another server.
local function is_gone(problem)
    return problem:find("^NOGROUP") or problem:find("^WRONGTYPE")
        or problem:find("^MOVED") or problem:find("^ASK")
        or problem:find("requires the key to exist", 1, true)
end

-- Joins the group of each stream, which is made when it is not there; it
-- begins with the oldest event. What is no stream is left alone.
function Group:join(keys)
    local commands = {}
    for i, key in ipairs(keys) do
        commands[i] = { "XGROUP", "CREATE", key, self.settings.group, "0" }
    end
    local replies, message = self:ask(commands)
    if not replies then
        return nil, message
    end
    for i, key in ipairs(keys) do
        local problem = error_of(replies[i])
        if not problem or problem:find("^BUSYGROUP") then
            self.known[key] = true
            table.insert(self.streams, key)
        elseif not is_gone(problem) then
            return nil, problem
        end
    end
    return true
end

-- Forgets streams that are gone or have moved to another server. One that is
-- there again is found again.
function Group:forget(keys)
    local kept = {}
    for _, key in ipairs(self.streams) do
        if keys[key] then
            self.known[key] = nil
        else
            kept[#kept + 1] = key
        end
    end
    self.streams = kept
end

--- Looks for streams that are new on the server; nil and why when it failed.
function Group:find()
    local cursor = "0"
    repeat
        local replies, message = self:ask({
            { "SCAN", cursor, "MATCH", KEYS .. "*", "COUNT",
                ("%d"):format(SCANNED) },
        })
        message = message or replies and error_of(replies[1])
        if message then
            return nil, message
        end
        cursor = replies[1][1]
        local new, seen = {}, {}
        for _, key in ipairs(replies[1][2]) do
            if not self.known[key] and not seen[key] then
                seen[key] = true
                new[#new + 1] = key
            end
        end
        local joined
        joined, message = self:join(new)
        if not joined then
            return nil, message
        end
    until cursor == "0"
    return true
end

-- Events ---------------------------------------------------------------------

-- Hands the entries of some streams on, {key, entries} each, and reports them
-- as done.
function Group:take(taken)
    local commands = {}
    for _, one in ipairs(taken) do
        local key, entries = one[1], one[2]
        local command = { "XACK", key, self.settings.group }
        for _, entry in ipairs(entries) do
            self.handle(key:sub(#KEYS + 1), entry)
            command[#command + 1] = entry[1]
        end
        commands[#commands + 1] = command
    end
    local safe, message = self.finish()
    if not safe then
        return nil, message
    end
    if #commands == 0 then
        return true
    end
    return self:ask(commands)
end

-- Asks for each of some streams, and takes what there is. `command_for` makes
-- the command for a key and `entries_in` finds the entries in a reply, nil for
-- none. Answers whether there may be more.
function Group:ask_each(keys, command_for, entries_in)
    local commands, taken, gone, is_more = {}, {}, {}, false
    for i, key in ipairs(keys) do
        commands[i] = command_for(key)
    end
    local replies, message = self:ask(commands)
    if not replies then
        return nil, message
    end
    for i, key in ipairs(keys) do
        local problem = error_of(replies[i])
        local entries = not problem and entries_in(replies[i]) or {}
        if problem and not is_gone(problem) then
            return nil, problem
        elseif problem then
            gone[key] = true
        elseif #entries > 0 then
            taken[#taken + 1] = { key, entries }
            is_more = is_more or #entries >= EVENTS
        end
    end
    if next(gone) then
        self:forget(gone)
    end
    local done
    done, message = self:take(taken)
    if not done then
        return nil, message
    end
    return is_more
end

-- The same for all streams, some at a time.
function Group:ask_all(command_for, entries_in)
    local all, is_more = self.streams, false
    for first = 1, #all, STREAMS do
        local last = math.min(first + STREAMS - 1, #all)
        local more, message = self:ask_each({ table.unpack(all, first, last) },
            command_for, entries_in)
        if more == nil then
            return nil, message
        end
        is_more = is_more or more
    end
    return is_more
end

--- Takes new events of all streams. Answers whether there may be more, nil and
--- why when it failed.
function Group:read()
    local settings, count = self.settings, ("%d"):format(EVENTS)
    return self:ask_all(function(key)
        return { "XREADGROUP", "GROUP", settings.group, settings.consumer,
            "COUNT", count, "STREAMS", key, ">" }
    end, function(reply)
        return reply and reply[1][2]
    end)
end

--- Takes events that a member of the group left pending for too long.
function Group:claim()
    local settings, count = self.settings, ("%d"):format(EVENTS)
    local age = ("%d"):format(settings.claim)
    return self:ask_all(function(key)
        return { "XAUTOCLAIM", key, settings.group, settings.consumer, age,
            "0-0", "COUNT", count }
    end, function(reply)
        return reply[2]
    end)
end

return group
