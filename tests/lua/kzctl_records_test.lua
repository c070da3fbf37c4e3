-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl's reading of a log: from its end, over rotated files, and on.

local lu = require("luaunit")
local records = require("kza.ctl.records")
local support = require("support")

local function line(number, level)
    return ("2026-11-21 02:04:%02d [4711:4712] %s kza: record %d\n"):format(
        number % 60, level or "INFO", number)
end

local function lines(first, last)
    local all = {}
    for number = first, last do
        all[#all + 1] = line(number)
    end
    return table.concat(all)
end

local function texts(found)
    local all = {}
    for i, record in ipairs(found) do
        all[i] = tonumber(record.text:match("record (%d+)"))
    end
    return all
end

-- The numbers of the last so many records.
local function last(log, count)
    local found = {}
    local ok, message = records.backwards(log, function(record)
        found[#found + 1] = record
        return #found < count
    end)
    return ok and texts(found) or message
end

TestParse = {}

function TestParse:test_takes_a_record_apart()
    local text = "2026-11-21 02:04:00 [4711:4713] TRACE Appl: Chunks.cpp:42 "
        .. "RunChunk a: b"
    lu.assertEquals(records.parse(text), {
        line = text, stamp = "2026-11-21 02:04:00", pid = 4711, thread = 4713,
        level = "TRACE", component = "Appl",
        text = "Chunks.cpp:42 RunChunk a: b",
    })
end

function TestParse:test_what_is_no_record_is_nil()
    for _, text in ipairs({ "", "junk", "2026-11-21 02:04:00 no record",
        "2026-11-21 02:04:00 [x:1] INFO kza: text" }) do
        lu.assertNil(records.parse(text), text)
    end
end

function TestParse:test_levels_from_the_worst_on()
    local warning = { level = "WARNING" }
    lu.assertTrue(records.is_at_least(warning, "WARNING"))
    lu.assertTrue(records.is_at_least(warning, "INFO"))
    lu.assertFalse(records.is_at_least(warning, "ERROR"))
end

function TestParse:test_times_have_an_offset()
    local seconds = records.seconds("2026-11-21 02:04:05")
    lu.assertStrMatches(records.iso(seconds),
        "2026%-11%-21T02:04:05[+-]%d%d:%d%d")
    lu.assertNil(records.seconds("yesterday"))
end

TestBackwards = {}

function TestBackwards:test_newest_come_first()
    local log = support.write(support.directory() .. "/a.log", lines(1, 5))
    lu.assertEquals(last(log, 3), { 5, 4, 3 })
    lu.assertEquals(last(log, 9), { 5, 4, 3, 2, 1 })
end

function TestBackwards:test_older_files_follow()
    local log = support.write(support.directory() .. "/a.log", lines(8, 9))
    support.write(log .. ".1", lines(5, 7))
    support.write(log .. ".2", lines(1, 4))
    support.write(log .. ".4", lines(100, 101)) -- none in between
    lu.assertEquals(last(log, 4), { 9, 8, 7, 6 })
    lu.assertEquals(last(log, 99), { 9, 8, 7, 6, 5, 4, 3, 2, 1 })
end

function TestBackwards:test_blocks_cut_lines_anywhere()
    -- Lines of uneven length over several blocks.
    local all = {}
    for number = 1, 3000 do
        all[number] = line(number):gsub("\n", (" x"):rep(number % 97) .. "\n")
    end
    local log = support.write(support.directory() .. "/a.log",
        table.concat(all))
    local found = last(log, math.huge)
    lu.assertEquals(#found, 3000)
    for i, number in ipairs(found) do
        lu.assertEquals(number, 3001 - i)
    end
end

function TestBackwards:test_a_line_longer_than_a_block()
    local long = line(2):gsub("\n", ("x"):rep(200000) .. "\n")
    local log = support.write(support.directory() .. "/a.log",
        line(1) .. long .. line(3))
    lu.assertEquals(last(log, 9), { 3, 2, 1 })
end

function TestBackwards:test_a_half_line_at_the_end_is_left_out()
    local log = support.write(support.directory() .. "/a.log",
        lines(1, 2) .. "2026-11-21 02:04:00 [1:2] INFO kza: rec")
    lu.assertEquals(last(log, 9), { 2, 1 })
    lu.assertEquals(last(support.write(log, "half"), 9), {})
    lu.assertEquals(last(support.write(log, ""), 9), {})
end

function TestBackwards:test_a_log_that_is_not_there_is_said()
    local log = support.directory() .. "/a.log"
    lu.assertEquals(last(log, 9), log .. ": No such file or directory")
end

-- Most of the file is a hole; reading it whole would take minutes.
function TestBackwards:test_a_log_of_any_size_is_answered_at_once()
    local log = support.write(support.directory() .. "/a.log", "")
    support.shell(("truncate -s 10G %s"):format(support.quote(log)))
    local file = io.open(log, "ab")
    file:write("\n", lines(1, 30))
    file:close()
    lu.assertEquals(#last(log, 20), 20)
end

-- A crash of the host may leave zeros in a log.
function TestBackwards:test_a_hole_is_passed_over()
    local log = support.write(support.directory() .. "/a.log", lines(1, 2))
    support.shell(("truncate -s 100M %s"):format(support.quote(log)))
    local file = io.open(log, "ab")
    file:write("\n", lines(3, 4))
    file:close()
    lu.assertEquals(last(log, 9), { 4, 3, 2, 1 })
end

function TestBackwards:test_reading_stops_after_so_many_bytes()
    local place = support.directory()
    local log = support.write(place .. "/a.log", lines(5001, 10000))
    support.write(log .. ".1", lines(1, 5000))
    for _, kib in ipairs({ 1, 100, 300 }) do
        local found = {}
        records.backwards(log, function(record)
            found[#found + 1] = record
        end, { bytes = kib * 1024 })
        local read = #found * #line(5000)
        lu.assertEquals(texts(found)[1], 10000)
        lu.assertTrue(read <= (kib + 64) * 1024, read)
        lu.assertTrue(read >= (kib - 1) * 1024, read)
    end
end

TestFollow = {}

local function append(path, text)
    local file = assert(io.open(path, "ab"))
    file:write(text)
    file:close()
end

function TestFollow:test_begins_at_the_end_and_waits_for_whole_lines()
    local log = support.write(support.directory() .. "/a.log",
        lines(1, 2) .. line(3):sub(1, 20))
    local follower = records.follow(log)
    lu.assertEquals(texts(follower:read()), {})
    append(log, line(3):sub(21) .. line(4):sub(1, 30))
    lu.assertEquals(texts(follower:read()), { 3 })
    append(log, line(4):sub(31))
    lu.assertEquals(texts(follower:read()), { 4 })
    lu.assertEquals(texts(follower:read()), {})
end

function TestFollow:test_what_was_there_is_left_to_the_other_way()
    local log = support.write(support.directory() .. "/a.log", lines(1, 3))
    local follower = records.follow(log)
    append(log, lines(4, 5))
    local found = {}
    records.backwards(log, function(record)
        found[#found + 1] = record
    end, { follower = follower })
    lu.assertEquals(texts(found), { 3, 2, 1 })
    lu.assertEquals(texts(follower:read()), { 4, 5 })
end

function TestFollow:test_goes_on_over_rotations()
    local log = support.write(support.directory() .. "/a.log", lines(1, 1))
    local follower = records.follow(log)
    append(log, line(2))
    os.rename(log, log .. ".1")
    append(log, line(3))
    lu.assertEquals(texts(follower:read()), { 2, 3 })

    -- The log is rotated twice between two looks.
    append(log, line(4))
    os.rename(log .. ".1", log .. ".2")
    os.rename(log, log .. ".1")
    append(log, line(5))
    os.rename(log .. ".2", log .. ".3")
    os.rename(log .. ".1", log .. ".2")
    os.rename(log, log .. ".1")
    append(log, line(6))
    lu.assertEquals(texts(follower:read()), { 4, 5, 6 })
end

function TestFollow:test_waits_for_a_log_that_is_not_there_yet()
    local log = support.directory() .. "/a.log"
    local follower = records.follow(log)
    lu.assertEquals(texts(follower:read()), {})
    append(log, lines(1, 2))
    lu.assertEquals(texts(follower:read()), { 1, 2 })
end
