-- SPDX-License-Identifier: Apache-2.0
--
-- The records of an agent's log. They are read backwards from the end, so that
-- the last records of a log of any size are found at once, or followed as they
-- are written.

local host = require("kza.host")

local records = {}

local BLOCK = 64 * 1024
local LONGEST = 8 * 1024 * 1024 -- bytes of a record

--- A record of the log.
---@class kza.ctl.Record
---@field line string       The line in the log.
---@field stamp string      `YYYY-MM-DD HH:MM:SS`, local time.
---@field pid integer
---@field thread integer
---@field level string      In capitals.
---@field component string
---@field text string

--- Levels from the worst on.
records.LEVELS = {
    "ERROR", "WARNING", "MESSAGE", "INFO", "VERBOSE", "DEBUG", "TRACE",
}

local RANKS = {}
for rank, level in ipairs(records.LEVELS) do
    RANKS[level] = rank
end

--- True when the record's level is this one or worse.
---@param record kza.ctl.Record
---@param level string
function records.is_at_least(record, level)
    return (RANKS[record.level] or 0) <= RANKS[level]
end

--- The record in a line; nil when the line is no record.
---@param line string
---@return kza.ctl.Record?
function records.parse(line)
    local stamp, pid, thread, level, component, text = line:match(
        "^(%d%d%d%d%-%d%d%-%d%d %d%d:%d%d:%d%d) %[(%d+):(%d+)%] (%u+) "
        .. "(.-): (.*)$")
    if not stamp then
        return nil
    end
    return {
        line = line, stamp = stamp, pid = tonumber(pid),
        thread = tonumber(thread), level = level, component = component,
        text = text,
    }
end

--- The time of a record in seconds since the epoch.
---@param stamp string
---@return number? seconds  nil when there is no such time.
function records.seconds(stamp)
    local year, month, day, hour, min, sec =
        stamp:match("^(%d+)%-(%d+)%-(%d+) (%d+):(%d+):(%d+)$")
    return year and os.time({
        year = tonumber(year), month = tonumber(month), day = tonumber(day),
        hour = tonumber(hour), min = tonumber(min), sec = tonumber(sec),
    })
end

--- A time as ISO 8601 with its offset from UTC.
---@param seconds number  Since the epoch.
---@return string
function records.iso(seconds)
    local whole = math.floor(seconds)
    return (os.date("%Y-%m-%dT%H:%M:%S%z", whole):gsub("(%d%d)$", ":%1"))
end

-- Opens a file of the log. A pipe in its place would keep the reader waiting,
-- and a directory has no end.
local function open(path)
    local stat, message = host.stat(path)
    if stat and stat.type ~= "file" then
        stat, message = nil, path .. ": it is no file"
    end
    if not stat then
        return nil, message
    end
    local file, reason = io.open(path, "rb")
    return file, reason, stat
end

-- The log's files that exist, newest first.
local function files_of(log)
    local paths = {}
    if host.stat(log) then
        paths[1] = log
    end
    for number = 1, math.huge do
        local path = log .. "." .. number
        if not host.stat(path) then
            return paths
        end
        paths[#paths + 1] = path
    end
end

-- The lines of a file, last first. A last line without a line break is left
-- out, because it is still being written. A line longer than any record is left
-- out as well, so that a hole in a file takes no memory.
--
-- The file is read in blocks, from its end. The bytes behind the last line
-- break of a block begin a line; the rest of that line, its tail, was in later
-- blocks.
local Lines = {}
Lines.__index = Lines

-- `budget.bytes` counts down the bytes that may still be read.
local function lines_backwards(file, from, budget)
    return setmetatable({ file = file, at = from or file:seek("end"),
        budget = budget, lines = {}, tail = {}, tail_size = 0 }, Lines)
end

function Lines:read_block()
    local size = math.min(BLOCK, self.at)
    self.at = self.at - size
    self.budget.bytes = self.budget.bytes - size
    self.file:seek("set", self.at)
    return self.file:read(size) or ""
end

function Lines:set_tail(text)
    self.tail, self.tail_size = { text }, #text
end

function Lines:lengthen_tail(text)
    self.tail_size = self.tail_size + #text
    self.tail[#self.tail + 1] = self.tail_size <= LONGEST and text or nil
end

-- The whole line of the tail; nil when it is longer than any record.
function Lines:finish_line(beginning)
    self:lengthen_tail(beginning)
    if self.tail_size > LONGEST then
        return nil
    end
    local pieces, count = {}, #self.tail
    for i, piece in ipairs(self.tail) do
        pieces[count - i + 1] = piece
    end
    return table.concat(pieces)
end

-- Appends the complete lines of a block to `lines`, in the file's order.
function Lines:take(block)
    local behind = block:match("^.*\n()")
    if not behind then
        -- Before the first line break, the block is part of a line that is
        -- still being written.
        if self.is_begun then
            self:lengthen_tail(block)
        end
        return
    end
    local last = self.is_begun and self:finish_line(block:sub(behind)) or nil
    self.is_begun = true
    local head, rest = block:sub(1, behind - 2):match("^([^\n]*)\n?(.*)$")
    self:set_tail(head)
    if #head < behind - 2 then
        for line in (rest .. "\n"):gmatch("([^\n]*)\n") do
            self.lines[#self.lines + 1] = line
        end
    end
    self.lines[#self.lines + 1] = last
end

--- The next line towards the beginning of the file; nil at the beginning, and
--- when no more bytes may be read.
function Lines:next()
    while #self.lines == 0 do
        if self.at == 0 or self.budget.bytes <= 0 then
            local first = self.at == 0 and self.is_begun
                and self:finish_line("") or nil
            self.is_begun = false
            return first
        end
        self:take(self:read_block())
    end
    return table.remove(self.lines)
end

local function same_file(one, other)
    return one and other and one.inode == other.inode
        and one.device == other.device
end

--- How far back records are read.
---@class kza.ctl.Reach
---@field follower? table  From records.follow(): leave out its records.
---@field bytes? integer   How much of the log is read at most, to a block.

-- Calls `visit` with the records of one file, newest first; false when `visit`
-- wants no more.
local function visit_file(path, visit, from, budget)
    local file, message = open(path)
    if not file then
        return nil, message
    end
    local lines = lines_backwards(file, from, budget)
    local wanted = true
    for line in function() return lines:next() end do
        local record = records.parse(line)
        wanted = not record or visit(record) ~= false
        if not wanted then
            break
        end
    end
    file:close()
    return wanted
end

--- Calls `visit` with each record, newest first, until it returns false or
--- there are no more records. Older files of the log are read too.
---@param log string
---@param visit fun(record: kza.ctl.Record): boolean?
---@param reach? kza.ctl.Reach
---@return true? found    nil when there is no log.
---@return string? message
function records.backwards(log, visit, reach)
    local paths = files_of(log)
    if #paths == 0 then
        local _, message = host.stat(log)
        return nil, message
    end
    local follower = reach and reach.follower
    local budget = { bytes = reach and reach.bytes or math.huge }
    for _, path in ipairs(paths) do
        local from = follower and same_file(follower.stat, host.stat(path))
            and follower.from or nil
        local wanted, message = visit_file(path, visit, from, budget)
        if wanted == nil then
            return nil, message
        end
        if not wanted or budget.bytes <= 0 then
            break
        end
    end
    return true
end

-- A follower reads one file after the other, each to its end.
local Follower = {}
Follower.__index = Follower

-- The offset of the end of the last complete line in a file.
local function end_of_lines(file)
    local at = file:seek("end")
    while at > 0 do
        local size = math.min(BLOCK, at)
        at = at - size
        file:seek("set", at)
        local whole = (file:read(size) or ""):match("^(.*\n)")
        if whole then
            return at + #whole
        end
    end
    return 0
end

--- Follows a log from its present end on, also over rotations.
---@param log string
function records.follow(log)
    local self = setmetatable({ log = log, rest = "" }, Follower)
    self:open(log)
    if self.file then
        self.from = end_of_lines(self.file)
        self.file:seek("set", self.from)
    end
    return self
end

function Follower:open(path)
    local file, _, stat = open(path)
    self.file, self.stat, self.rest = file, file and stat, ""
end

-- The file that was written after the one that has been read; nil when the log
-- has not been rotated since.
function Follower:next_path()
    local present = host.stat(self.log)
    if not present or same_file(present, self.stat) then
        return nil
    end
    local newer = self.log
    for number = 1, math.huge do
        local path = self.log .. "." .. number
        local stat = host.stat(path)
        if not stat then
            return self.file and self.log or newer
        end
        if same_file(stat, self.stat) then
            return newer
        end
        newer = path
    end
end

-- Adds the records in the complete lines that were written since the last call.
function Follower:read_lines(found)
    local text = self.file and self.file:read("*a")
    if not text then
        return
    end
    text = self.rest .. text
    local whole = text:match("^(.*\n)") or ""
    self.rest = text:sub(#whole + 1)
    for line in whole:gmatch("([^\n]*)\n") do
        found[#found + 1] = records.parse(line)
    end
end

--- The records that have come since the last call, oldest first.
---@return kza.ctl.Record[]
function Follower:read()
    local found = {}
    self:read_lines(found)
    local path = self:next_path()
    while path do
        -- First the lines that were written to the old file after its reading.
        self:read_lines(found)
        if self.file then
            self.file:close()
        end
        self:open(path)
        self:read_lines(found)
        path = self:next_path()
    end
    return found
end

return records
