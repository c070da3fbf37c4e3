-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl events: the agent's reports about itself.

local fail = require("kza.ctl.fail")
local host = require("kza.host")
local records = require("kza.ctl.records")
local show = require("kza.ctl.show")

local ORDER = { "id", "number", "severity", "time", "time_ms", "text" }
local LOOK_MS = 500

local function read(where, after, last)
    local stat, message = host.stat(where.events)
    if not stat and message:find("No such file", 1, true) then
        return {} -- the agent makes the database with its first event
    end
    local events
    if stat then
        events, message = host.events(where.events, after, last)
    end
    if not events then
        fail("%s", message)
    end
    return events
end

local function print_event(context, event)
    local time = records.iso(event.time)
    if context.json then
        event.time = time
        show.json(event, ORDER)
        return
    end
    show.row({ { text = ("%d"):format(event.id), width = 5 },
        { text = time, width = 25 },
        { text = ("%d"):format(event.number), width = 5 },
        { text = ("%d"):format(event.severity), width = 2 } },
        (event.text:gsub("%c", " ")))
end

local function events(context)
    local args = context.args
    local last_id = args.after or 0
    local found = read(context.where, last_id, args.n or (args.after and -1)
        or 20)
    while true do
        for _, event in ipairs(found) do
            last_id = event.id
            print_event(context, event)
        end
        if not args.follow then
            return 0
        end
        dom:Sleep(LOOK_MS)
        found = read(context.where, last_id, -1)
    end
end

local function whole(text)
    local number = tonumber(text)
    if not number or number < 0 or number % 1 ~= 0 then
        return nil, "'" .. text .. "' is no whole number"
    end
    return number
end

local function define(command)
    command:flag("-f --follow", "go on with those that are stored from now on")
    command:option("-n", "show the last N (20, with --after all)"):argname("N")
        :convert(whole)
    command:option("--after", "only events with a greater id"):argname("ID")
        :convert(whole)
end

return {
    {
        name = "events",
        summary = "the last agent events",
        description = [[
Shows the agent events, the newest last: id, time, number, severity and text.
There are none as long as the agent has not stored one.]],
        define = define,
        json = ORDER,
        run = events,
    },
}
