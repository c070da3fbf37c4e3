-- SPDX-License-Identifier: Apache-2.0
--
-- The fleet example's shipping of events: where it goes on, and what it does
-- when the stream is not what it was. The streams are the test's own.

local lu = require("luaunit")
local support = require("support")

package.path = support.source .. "/examples/?.lua;" .. package.path

local events = require("fleet.events")
local fake_streams = require("fake_streams")

local KEY = "kza:events:web1"

TestEvents = {}

-- Events as the agent would have stored them. `kind` makes another host's, or
-- another database's, differ.
local function stored(count, kind)
    local list = {}
    for id = 1, count do
        list[id] = {
            id = id, number = id % 7, severity = 5, time = 1700000000 + id,
            time_ms = 1700000000000 + 1000 * id,
            text = (kind or "event") .. " " .. id,
        }
    end
    return list
end

function TestEvents:setUp()
    self.streams = fake_streams.new()
    self.stored = stored(0)
    self.most = 0
    self.shipper = self:new_shipper()
end

function TestEvents:new_shipper()
    return events.new(KEY, function(after, limit)
        if self.unreadable then
            return nil, self.unreadable
        end
        local found = {}
        for _, event in ipairs(self.stored) do
            if event.id > after and #found < limit then
                found[#found + 1] = event
            end
        end
        self.most = math.max(self.most, limit)
        return found
    end)
end

-- Ships until all has gone; answers how many times it took.
function TestEvents:ship_all(shipper)
    for turn = 1, 100 do
        local more, message = (shipper or self.shipper):ship(self.streams)
        lu.assertNil(message)
        if not more then
            return turn
        end
    end
    lu.fail("it does not end")
end

-- Every id from `first` to `last`, once and in order.
function TestEvents:assert_ids(first, last)
    local expected = {}
    for id = first, last do
        expected[#expected + 1] = id
    end
    lu.assertEquals(self.streams:ids(KEY), expected)
end

function TestEvents:test_nothing_to_ship()
    lu.assertEquals(self:ship_all(), 1)
    lu.assertNil(self.streams.streams[KEY])
end

function TestEvents:test_an_event_as_it_is()
    self.stored = stored(1)
    self.stored[1].text = "a\0\r\nb"
    self:ship_all()
    lu.assertEquals(self.streams.streams[KEY].entries, { { "1-0", {
        "number", "1", "severity", "5", "time", "1700000001",
        "time_ms", "1700000001000", "text", "a\0\r\nb",
    } } })
end

function TestEvents:test_batches()
    self.stored = stored(1200)
    lu.assertTrue(self.shipper:ship(self.streams))
    self:assert_ids(1, 500)
    lu.assertTrue(self.shipper:ship(self.streams))
    lu.assertFalse(self.shipper:ship(self.streams))
    self:assert_ids(1, 1200)
    lu.assertEquals(self.streams.transactions, 3)
    lu.assertTrue(self.most <= 501, self.most)
    self.stored = stored(1201)
    lu.assertFalse(self.shipper:ship(self.streams))
    self:assert_ids(1, 1201)
end

function TestEvents:test_another_run_goes_on()
    self.stored = stored(3)
    self:ship_all()
    self.stored = stored(5)
    self:ship_all(self:new_shipper())
    self:assert_ids(1, 5)
end

-- Failures -------------------------------------------------------------------

function TestEvents:test_a_batch_that_is_lost()
    self.stored = stored(3)
    self.shipper:ship(self.streams)
    self.stored = stored(5)
    self.streams:fail("a: closed")
    lu.assertEquals({ self.shipper:ship(self.streams) }, { nil, "a: closed" })
    self.streams:reconnect()
    self:ship_all()
    self:assert_ids(1, 5)
end

-- It has arrived, only the answer has not.
function TestEvents:test_a_batch_whose_answer_is_lost()
    self.stored = stored(5)
    self.streams.before = function()
        self:ship_all(self:new_shipper())
        self.streams:fail("a: closed")
    end
    lu.assertEquals({ self.shipper:ship(self.streams) }, { nil, "a: closed" })
    self.streams:reconnect()
    self:ship_all()
    self:assert_ids(1, 5)
end

-- A former worker's batch arrives after we asked where to go on.
function TestEvents:test_a_refused_id_is_one_that_had_arrived()
    self.stored = stored(5)
    self.streams.before = function()
        self.stored = stored(3)
        self:ship_all(self:new_shipper())
        self.stored = stored(5)
    end
    self:ship_all()
    self:assert_ids(1, 5)
    lu.assertNil(self.shipper.held)
end

function TestEvents:test_a_key_that_moves()
    self.stored = stored(2)
    self.shipper:ship(self.streams)
    self.stored = stored(4)
    self.streams:fail(require("fleet.servers").MOVED)
    lu.assertTrue(self.shipper:ship(self.streams))
    self:ship_all()
    self:assert_ids(1, 4)
end

function TestEvents:test_a_server_that_refuses()
    self.stored = stored(2)
    self.streams:fail("ERR no permission")
    lu.assertEquals({ self.shipper:ship(self.streams) },
        { nil, "ERR no permission" })
    self.streams.before = function() self.streams.wrong_type = KEY end
    lu.assertEquals({ self.shipper:ship(self.streams) },
        { nil, "WRONGTYPE no stream" })
    self.streams.wrong_type = nil
    self:ship_all()
    self:assert_ids(1, 2)
end

function TestEvents:test_a_database_that_cannot_be_read()
    self.stored = stored(2)
    self.unreadable = "disk"
    lu.assertEquals({ self.shipper:ship(self.streams) }, { nil, "disk" })
    self.unreadable = nil
    self:ship_all()
    self.streams:reconnect()
    self.unreadable = "disk"
    lu.assertEquals({ self.shipper:ship(self.streams) }, { nil, "disk" })
    self.unreadable = nil
    self:ship_all()
    self:assert_ids(1, 2)
end

-- Operators ------------------------------------------------------------------

function TestEvents:test_a_trimmed_stream_is_not_filled_again()
    self.stored = stored(5)
    self:ship_all()
    self.streams.streams[KEY].entries = {}
    self.streams:reconnect()
    self:ship_all()
    self.stored = stored(6)
    self:ship_all()
    self:assert_ids(6, 6)
end

function TestEvents:test_entries_that_were_deleted_do_not_come_again()
    self.stored = stored(5)
    self:ship_all()
    local entries = self.streams.streams[KEY].entries
    table.remove(entries, 5)
    table.remove(entries, 1)
    self.stored = stored(6)
    self:ship_all(self:new_shipper())
    lu.assertEquals(self.streams:ids(KEY), { 2, 3, 4, 6 })
end

function TestEvents:test_a_deleted_stream_is_filled_again()
    self.stored = stored(5)
    self:ship_all()
    self.streams.streams = {}
    self:ship_all(self:new_shipper())
    self:assert_ids(1, 5)
end

-- On the same connection, which has no reason to ask where to go on.
function TestEvents:test_a_stream_deleted_between_two_batches()
    self.stored = stored(5)
    self:ship_all()
    self.streams.streams = {}
    self.stored = stored(6)
    self:ship_all()
    self:assert_ids(1, 6)
end

function TestEvents:test_an_older_copy_is_completed()
    self.stored = stored(5)
    self:ship_all()
    local stream = self.streams.streams[KEY]
    stream.entries[5], stream.entries[4] = nil, nil
    stream.last = "3-0"
    self.streams:reconnect()
    self:ship_all()
    self:assert_ids(1, 5)
end

-- A collector that comes first makes the stream with its group.
function TestEvents:test_an_empty_stream_is_filled()
    self.streams.streams[KEY] = { last = "0-0", entries = {} }
    self.stored = stored(2)
    self:ship_all()
    self:assert_ids(1, 2)
end

-- Streams that are not this host's --------------------------------------------

local HELD = "'" .. KEY .. "' has an event %s that is not this host's: another "
    .. "host has its name, or its event database was begun anew"

function TestEvents:assert_held(shipper, id)
    lu.assertFalse(shipper:ship(self.streams))
    lu.assertEquals(shipper.held, HELD:format(id))
end

function TestEvents:test_another_host_of_that_name()
    self.stored = stored(3, "theirs")
    self:ship_all(self:new_shipper())
    for _, count in ipairs({ 0, 2, 3, 9 }) do
        self.stored = stored(count, "ours")
        self:assert_held(self:new_shipper(), "3-0")
        self:assert_ids(1, 3)
    end
end

-- Both begin with an empty stream, and the other one is faster.
function TestEvents:test_another_host_that_is_faster()
    self.streams.before = function()
        local ours = self.stored
        self.stored = stored(2, "theirs")
        self:ship_all(self:new_shipper())
        self.stored = ours
    end
    self.stored = stored(4, "ours")
    lu.assertFalse(self.shipper:ship(self.streams))
    lu.assertEquals(self.shipper.held, HELD:format("1-0"))
end

function TestEvents:test_a_database_begun_anew()
    self.stored = stored(5)
    self:ship_all()
    self.stored = stored(2, "new")
    self:assert_held(self:new_shipper(), "5-0")
    -- The ids have caught up, which makes the events no less different.
    self.stored = stored(7, "new")
    self:assert_held(self:new_shipper(), "5-0")
    self:assert_ids(1, 5)
end

function TestEvents:test_a_database_begun_anew_while_the_agent_runs()
    self.stored = stored(5)
    self:ship_all()
    for _, count in ipairs({ 0, 7 }) do
        self.stored = stored(count, "new")
        self:ship_all()
        self:assert_held(self.shipper, "5-0")
    end
    self:assert_ids(1, 5)
end

function TestEvents:test_a_database_begun_anew_and_an_emptied_stream()
    self.stored = stored(5)
    self:ship_all()
    self.streams.streams[KEY].entries = {}
    self.stored = stored(2, "new")
    self:assert_held(self:new_shipper(), "5-0")
end

function TestEvents:test_an_entry_that_somebody_added_by_hand()
    self.stored = stored(2)
    self:ship_all()
    local stream = self.streams.streams[KEY]
    for _, id in ipairs({ "2-1", "1700000000000-0" }) do
        stream.last = id
        table.insert(stream.entries, { id, { "text", "by hand" } })
        self:assert_held(self:new_shipper(), id)
    end
end

function TestEvents:test_it_goes_on_once_the_stream_is_removed()
    self.stored = stored(3, "theirs")
    self:ship_all(self:new_shipper())
    self.stored = stored(2)
    self:assert_held(self.shipper, "3-0")
    self.streams.streams = {}
    self:ship_all()
    lu.assertNil(self.shipper.held)
    self:assert_ids(1, 2)
end
