-- SPDX-License-Identifier: Apache-2.0
--
-- The records of an agent's log. They are read backwards from the end, so that
-- the last records of a log of any size are found at once, or followed as they
-- are written.

local host = require("kza.host")

local records = {}

local BLOCK = 64 * 1024

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
-- out, because it is still being written.
local function lines_backwards(file, from)
    local at = from or file:seek("end")
    local buffer = "" -- from `at` on, without the line break of its last line
    local ended = false -- the end of the last complete line has been found
    local lines = {}

    local function read_block()
        local size = math.min(BLOCK, at)
        at = at - size
        file:seek("set", at)
        buffer = (file:read(size) or "") .. buffer
    end

    local function find_end()
        local whole = buffer:match("^(.*)\n")
        buffer = whole or buffer
        ended = whole ~= nil
        return ended
    end

    -- All lines of the buffer but the first, whose beginning may be missing.
    local function take_lines()
        local first, rest = buffer:match("^([^\n]*)\n(.*)$")
        if first then
            buffer = first
            for line in (rest .. "\n"):gmatch("([^\n]*)\n") do
                lines[#lines + 1] = line
            end
        end
        return first ~= nil
    end

    return function()
        while buffer and #lines == 0 do
            local found
            if ended then
                found = take_lines()
            else
                found = find_end()
            end
            if not found and at > 0 then
                read_block()
            elseif not found then
                lines[1] = ended and buffer or nil
                buffer = nil
            end
        end
        return table.remove(lines)
    end
end

local function same_file(one, other)
    return one and other and one.inode == other.inode
        and one.device == other.device
end

--- Calls `visit` with each record, newest first, until it returns false or
--- there are no more records. Older files of the log are read too.
---@param log string
---@param visit fun(record: kza.ctl.Record): boolean?
---@param follower? table  From records.follow(): leave out its records.
---@return true? found    nil when there is no log.
---@return string? message
function records.backwards(log, visit, follower)
    local paths = files_of(log)
    if #paths == 0 then
        local _, message = host.stat(log)
        return nil, message
    end
    for _, path in ipairs(paths) do
        local file, message = io.open(path, "rb")
        if not file then
            return nil, message
        end
        local from = follower and same_file(follower.stat, host.stat(path))
            and follower.from or nil
        for line in lines_backwards(file, from) do
            local record = records.parse(line)
            if record and visit(record) == false then
                file:close()
                return true
            end
        end
        file:close()
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
    self.file = io.open(path, "rb")
    self.stat = self.file and host.stat(path)
    self.rest = ""
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
