-- SPDX-License-Identifier: Apache-2.0
--
-- The settings of an agent of the fleet, and of its collectors: keys of the
-- domain. They are read anew each time, so that a change takes effect while
-- the agent runs.
--
--     fleet.servers          host:port of each server, comma separated
--     fleet.host             the name that this host has in the fleet
--     fleet.user, fleet.password
--                            what the servers ask for
--     fleet.tls              1: speak TLS
--     fleet.tls.ca           file of the authorities that sign the servers'
--                            certificates; the system's own unless set
--     fleet.interval         milliseconds between two looks for new events
--     fleet.vitals.interval  milliseconds between two publications of vitals
--     fleet.vitals.length    how many of them the server keeps
--
-- Collectors:
--
--     fleet.group            those of one group share the events
--     fleet.consumer         the collector's name in its group
--     fleet.claim            milliseconds after which what a collector took
--                            and did not finish goes to another one

local socket = require("socket")

local config = {}

local DEFAULT_PORT = 6379
local DAY = 24 * 60 * 60 * 1000

-- Whole numbers: default, least, most.
local NUMBERS = {
    ["fleet.interval"] = { 1000, 10, DAY },
    ["fleet.vitals.interval"] = { 10000, 100, DAY },
    ["fleet.vitals.length"] = { 1000, 1, 2 ^ 31 },
    ["fleet.claim"] = { 30000, 100, DAY },
}

local function number(name)
    local default, least, most = table.unpack(NUMBERS[name])
    local wanted = tonumber(dom:Get(name))
    if not wanted then
        return default
    end
    return math.floor(math.max(least, math.min(wanted, most)))
end

-- An empty text is as good as none.
local function text(name)
    local value = dom:Get(name)
    return value ~= nil and value ~= "" and tostring(value) or nil
end

local function switch(name)
    local value = dom:Get(name)
    return value == true or value == "1" or value == "true"
end

-- "host", "host:port" or "[address]:port", the brackets for IPv6, in the one
-- form that has both; nil for anything else.
local function server(word)
    local host, port = word:match("^%[([%x:.]+)%](.*)$")
    if not host then
        host, port = word:match("^([%w._-]+)(.*)$")
    end
    port = port and (port == "" and DEFAULT_PORT
        or tonumber(port:match("^:(%d+)$")))
    if not port or port < 1 or port > 65535 then
        return nil
    end
    host = host:find(":") and "[" .. host .. "]" or host
    return ("%s:%d"):format(host, port)
end

-- The list of servers, and its words that are none.
local function servers()
    local list, wrong = {}, {}
    local value = text("fleet.servers") or ("127.0.0.1:%d"):format(DEFAULT_PORT)
    for word in value:gmatch("[^,%s]+") do
        local name = server(word)
        table.insert(name and list or wrong, name or word)
    end
    return list, wrong
end

--- The settings as they are now. Two that lead to the same servers in the same
--- way have the same `connection`.
function config.read()
    local host = text("fleet.host") or socket.dns.gethostname()
    local settings = {
        servers = servers(),
        host = host,
        user = text("fleet.user"),
        password = text("fleet.password"),
        tls = switch("fleet.tls"),
        ca = text("fleet.tls.ca"),
        interval = number("fleet.interval"),
        vitals_interval = number("fleet.vitals.interval"),
        vitals_length = number("fleet.vitals.length"),
        group = text("fleet.group") or "collectors",
        consumer = text("fleet.consumer") or socket.dns.gethostname(),
        claim = number("fleet.claim"),
    }
    settings.connection = table.concat({
        table.concat(settings.servers, ","), host, settings.user or "",
        settings.password or "", tostring(settings.tls), settings.ca or "",
    }, "\0")
    return settings
end

--- What is wrong with the settings, a sentence each.
function config.complaints()
    local found = {}
    for name, range in pairs(NUMBERS) do
        local value = dom:Get(name)
        if value ~= nil and not tonumber(value) then
            found[#found + 1] = ("%s is '%s', not a number; using %d")
                :format(name, tostring(value), range[1])
        end
    end
    local list, wrong = servers()
    for _, word in ipairs(wrong) do
        found[#found + 1] = ("fleet.servers: '%s' is not host:port")
            :format(word)
    end
    if #list == 0 then
        found[#found + 1] = "fleet.servers names no server"
    end
    table.sort(found)
    return found
end

return config
