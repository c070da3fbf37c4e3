-- SPDX-License-Identifier: Apache-2.0
--
-- Ships the agent's events to a stream on the server, each once and in order.
--
-- An event has the same id in the stream as in the agent's database, and a
-- stream takes only ids greater than its last one. So what has arrived is
-- what the stream says, and nothing is noted down here: after each new
-- connection the stream is asked for its last id, and shipping goes on behind
-- it. A batch is a transaction: all of it arrives or none.
--
-- What could go wrong without a word is that the stream does not continue the
-- agent's own database: two hosts have one name, or the database was begun
-- anew and its ids with it. The events would be refused as known ones. So the
-- last event of the stream is compared with the agent's own of that id; when
-- they differ, nothing is shipped until an operator has settled it.

local MOVED = require("fleet.servers").MOVED

local Events = {}
Events.__index = Events

local events = {}

--- At most so many events are in flight, and in memory.
events.BATCH = 500

--- `key` is the stream's. `read(after_id, limit)` answers stored events as
--- dom:AgentEvents does.
function events.new(key, read)
    return setmetatable({
        key = key,
        read = read,
        at = nil,   -- the client that told the place
        last = nil, -- the place: the stream's last id; nil while not known
        mark = nil, -- our event of that id; nil when there was never one
        exists = false, -- the stream
        held = nil, -- why nothing is shipped, when an operator has to act
    }, Events)
end

-- What the two have to have in common to be one event.
local FIELDS = { "number", "severity", "time", "time_ms", "text" }

local function whole(number)
    return ("%d"):format(number)
end

-- The names and values of an entry, in turn.
local function fields_of(event)
    return {
        "number", whole(event.number), "severity", whole(event.severity),
        "time", whole(event.time), "time_ms", whole(event.time_ms),
        "text", event.text,
    }
end

local function is_same(event, other)
    for _, name in ipairs(FIELDS) do
        if event[name] ~= other[name] then
            return false
        end
    end
    return event.id == other.id
end

-- Whether an entry, {id, {name, value...}}, holds the event.
local function is_entry_of(entry, event)
    local id, fields = entry[1], fields_of(event)
    if id ~= whole(event.id) .. "-0" or #fields ~= #entry[2] then
        return false
    end
    for i, text in ipairs(fields) do
        if entry[2][i] ~= text then
            return false
        end
    end
    return true
end

-- The event of an id, false when there is none, nil and why when that cannot
-- be told.
function Events:own(id)
    local found, message = self.read(id - 1, 1)
    if not found then
        return nil, message
    end
    return found[1] and found[1].id == id and found[1] or false
end

-- Finding the place ----------------------------------------------------------

-- What the server says of the stream, by name; an empty table when there is
-- none.
function Events:ask_for_stream(servers)
    local reply, message, at = servers:call(self.key, "XINFO", "STREAM",
        self.key)
    if not reply and (message or ""):find("no such key", 1, true) then
        return {}, nil, at
    elseif not reply then
        return nil, message
    end
    local about, i = {}, 1
    while reply[i] do
        about[reply[i]] = reply[i + 1] -- nil for an entry that is not there
        i = i + 2
    end
    return about, nil, at
end

-- Whether the stream continues our events, so far as can be seen: its last
-- entry is our event, and the last id that it ever had is one of ours.
function Events:is_ours(about, last, mark)
    if last == 0 then
        return true
    elseif not mark then
        return false
    end
    local entry = about["last-entry"]
    if not entry then
        return true -- an operator emptied it
    end
    local id = tonumber(entry[1]:match("^(%d+)%-0$"))
    local own, message = mark, nil
    if id ~= last then
        own, message = self:own(id or -1)
    end
    if own == nil then
        return nil, message
    end
    return own and is_entry_of(entry, own)
end

-- Asks where to go on. True when that is known now or an operator has to act.
function Events:find_place(servers)
    local about, message, at = self:ask_for_stream(servers)
    if not about then
        return nil, message
    end
    local generated = about["last-generated-id"] or "0-0"
    local last, more = generated:match("^(%d+)%-(%d+)$")
    last = more == "0" and tonumber(last) or -1
    local mark
    if last > 0 then
        mark, message = self:own(last)
        if mark == nil then
            return nil, message
        end
    end
    local ours
    ours, message = self:is_ours(about, last, mark)
    if ours == nil then
        return nil, message
    end
    self.held = nil
    if not ours then
        self:hold(generated)
        return true
    end
    self.at, self.last, self.mark = at, last, mark
    self.exists = about["last-generated-id"] ~= nil
    return true
end

function Events:hold(id)
    self.last = nil
    self.held = ("'%s' has an event %s that is not this host's: another "
        .. "host has its name, or its event database was begun anew")
        :format(self.key, id)
end

-- Shipping -------------------------------------------------------------------

-- The events that follow the place; nil and why when they cannot be read. The
-- place is void when our event there is no longer the one that it was.
function Events:next_batch()
    local known = self.mark and 1 or 0
    local found, message = self.read(self.last - known, events.BATCH + known)
    if not found then
        return nil, message
    end
    if self.mark and not (found[1] and is_same(found[1], self.mark)) then
        self.last = nil
        return {}
    end
    if self.mark then
        table.remove(found, 1)
    end
    return found
end

function Events:commands(batch)
    local commands = {}
    for i, event in ipairs(batch) do
        local command = { "XADD", self.key }
        -- A stream that somebody deleted is not begun in the middle.
        if self.exists then
            command[3] = "NOMKSTREAM"
        end
        command[#command + 1] = whole(event.id) .. "-0"
        for _, word in ipairs(fields_of(event)) do
            command[#command + 1] = word
        end
        commands[i] = command
    end
    return commands
end

local function is_refused_id(reply)
    return type(reply) == "table"
        and (reply.error or ""):find("equal or smaller", 1, true) ~= nil
end

-- An id is refused because the event had arrived: a former worker's batch was
-- still on its way when we asked for the place. Or another host was faster.
function Events:check_refused(servers, event)
    local id = whole(event.id) .. "-0"
    local found, message = servers:call(self.key, "XRANGE", self.key, id, id)
    if not found then
        return nil, message
    end
    if found[1] and not is_entry_of(found[1], event) then
        self:hold(id)
    end
    return true
end

-- Looks at what became of each event of a batch.
function Events:settle(servers, batch, replies)
    for i, event in ipairs(batch) do
        local reply = replies[i]
        if is_refused_id(reply) then
            self.last = nil
            local checked, message = self:check_refused(servers, event)
            if not checked or self.held then
                return checked, message
            end
        elseif reply == nil then
            self.last = nil -- the stream is gone
            return true
        elseif type(reply) == "table" then
            self.last = nil
            return nil, reply.error
        elseif self.last then
            self.last, self.mark, self.exists = event.id, event, true
        end
    end
    return true
end

-- Whether the place is still that of the server that we would ask now.
function Events:has_place(servers)
    return self.last ~= nil and self.at == servers:client_for(self.key)
end

--- Ships one batch. Answers true when there may be more to ship, false when
--- all has arrived or is held, nil and why when it failed.
function Events:ship(servers)
    if not self:has_place(servers) then
        local found, message = self:find_place(servers)
        if not found or self.held then
            return found and false, message
        end
    end
    local batch, message = self:next_batch()
    if not batch then
        return nil, message
    elseif #batch == 0 then
        return self.last == nil
    end
    local replies
    replies, message = servers:transaction(self.at, self.key,
        self:commands(batch))
    if not replies then
        self.last = nil
        return message == MOVED or nil, message
    end
    local settled
    settled, message = self:settle(servers, batch, replies)
    if not settled then
        return nil, message
    end
    return not self.held and (self.last == nil or #batch == events.BATCH)
end

return events
