-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl log: the records of the agent's log.

local fail = require("kza.ctl.fail")
local records = require("kza.ctl.records")
local show = require("kza.ctl.show")

local ORDER = { "time", "pid", "thread", "level", "component", "text" }
local COLOURS = { ERROR = "red", WARNING = "yellow" }
local LOOK_MS = 200

local UNITS = { s = 1, m = 60, h = 3600, d = 86400 }

-- The time for `YYYY-MM-DD HH:MM:SS`, for `HH:MM:SS` of today, or for `10m`,
-- `2h`, `1d` before now.
local function time_of(text)
    local count, unit = text:match("^(%d+)([smhd])$")
    if count then
        return os.time() - tonumber(count) * UNITS[unit]
    end
    if text:find("^%d%d:%d%d:%d%d$") then
        text = os.date("%Y-%m-%d ") .. text
    end
    local seconds = records.seconds(text)
    if not seconds then
        return nil, "'" .. text .. "' is no time: take 'YYYY-MM-DD HH:MM:SS', "
            .. "'HH:MM:SS' or '10m', '2h', '1d'"
    end
    return seconds
end

local function print_record(context, record)
    if not context.json then
        show.row({}, record.line, COLOURS[record.level])
        return
    end
    show.json({
        time = records.iso(records.seconds(record.stamp)),
        pid = record.pid,
        thread = record.thread,
        level = record.level,
        component = record.component,
        text = record.text,
    }, ORDER)
end

local function is_wanted(context, record)
    local level = context.args.level
    return not level or records.is_at_least(record, level:upper())
end

local function last_records(context, follower)
    local found, args = {}, context.args
    if args.n == 0 then
        return found
    end
    local read, message = records.backwards(context.where.log, function(record)
        if args.since
            and (records.seconds(record.stamp) or 0) < args.since then
            return false
        end
        if is_wanted(context, record) then
            found[#found + 1] = record
        end
        return #found < args.n
    end, { follower = follower })
    if not read and not args.follow then
        fail("%s", message)
    end
    return found
end

local function follow(context, follower)
    while true do
        for _, record in ipairs(follower:read()) do
            if is_wanted(context, record) then
                print_record(context, record)
            end
        end
        dom:Sleep(LOOK_MS)
    end
end

local function log(context)
    -- The follower begins at the end of the last records, so that no record is
    -- missed or shown twice.
    local follower = context.args.follow and records.follow(context.where.log)
        or nil
    local found = last_records(context, follower)
    for i = #found, 1, -1 do
        print_record(context, found[i])
    end
    if follower then
        follow(context, follower)
    end
    return 0
end

local function count(text)
    local number = tonumber(text)
    if not number or number < 0 or number % 1 ~= 0 then
        return nil, "'" .. text .. "' is no number of records"
    end
    return number
end

local function define(command)
    local levels = {}
    for i, level in ipairs(records.LEVELS) do
        levels[i] = level:lower()
    end
    command:flag("-f --follow", "go on with what is written from now on")
    command:option("-n", "show the last N"):argname("N"):default("20")
        :convert(count)
    command:option("--level", "only records of this level or worse")
        :choices(levels)
    command:option("--since", "only records since then"):argname("TIME")
        :convert(time_of)
end

return {
    {
        name = "log",
        summary = "the last records of the log",
        description = [[
Shows the last records of the log, the newest last. Older files of the log are
read too, as far as it takes. A TIME is 'YYYY-MM-DD HH:MM:SS', 'HH:MM:SS' of
today, or '10m', '2h', '1d' for so long ago.]],
        define = define,
        json = ORDER,
        run = log,
    },
}
