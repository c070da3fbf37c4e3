-- SPDX-License-Identifier: Apache-2.0
--
-- Follows the events of all hosts of the fleet and prints each as a line of
-- JSON, for what takes over from here: a log pipeline, a database.
--
--     kz_agent --appname collect
--         --lua_path 'examples/fleet/?.lua;examples/?.lua'
--
-- The settings are those of fleet.config. Collectors of one group share the
-- work. An event comes once; after a crash, of a collector or of a server that
-- lost its last seconds, some come again.

local backoff = require("fleet.backoff")
local config = require("fleet.config")
local group = require("fleet.group")
local host = require("kza.host")
local line = require("fleet.line")
local servers = require("fleet.servers")

local collect = {}

local SEARCH = 5 -- seconds between two looks for new hosts and servers

local is_stopped = false

local function stopping()
    is_stopped = is_stopped or not dom:Sleep(0)
    return is_stopped
end

-- Output ---------------------------------------------------------------------

local write_failure

local function print_line(host_name, entry)
    local written, message = io.stdout:write(line.of(host_name, entry), "\n")
    write_failure = write_failure or not written and message
end

-- All lines so far are out when this answers true.
local function flush()
    local flushed, message = io.stdout:flush()
    write_failure = write_failure or not flushed and message
    return not write_failure, write_failure
end

-- Servers --------------------------------------------------------------------

-- The masters of a cluster as "host:port", or the one server that there is.
local function masters(link)
    local client, message = link.servers:any_client()
    local replies = client
    if client then
        replies, message = link.servers:ask(client, { { "CLUSTER", "SLOTS" } })
    end
    if not replies then
        return nil, message
    elseif replies[1].error then
        return { client.server }
    end
    local list, seen = {}, {}
    for _, range in ipairs(replies[1]) do
        local name = servers.name(range[3][1], range[3][2], client)
        if not seen[name] then
            seen[name] = true
            list[#list + 1] = name
        end
    end
    return list, #list == 0 and "the cluster has no servers" or nil
end

-- Has a group for a server, and lets it find the streams there.
local function search_at(link, name)
    local client, message = link.servers:client_at(name)
    if not client then
        return nil, message
    end
    local one = link.groups[name]
    if not one or one.client ~= client then
        one = group.new(link.servers, client, link.settings, print_line, flush)
        link.groups[name] = one
    end
    return one:find()
end

-- A server that fails does not keep the others waiting; the next search comes
-- back to it.
local function lose(link, name, message)
    link.groups[name] = nil
    dom:Log("warning", "fleet: " .. message .. "; trying again")
end

-- Looks for servers, and for streams at each. Answers nil and why not when
-- there is nothing to read from.
local function search(link)
    local names, message = masters(link)
    if not names then
        return nil, message
    end
    local former = link.groups
    link.groups = {}
    for _, name in ipairs(names) do
        link.groups[name] = former[name]
        local found
        found, message = search_at(link, name)
        if not found and not stopping() then
            lose(link, name, message)
        end
    end
    return next(link.groups) and true, message
end

-- Calls a method of each group; answers whether there may be more.
local function each_group(link, method)
    local is_more = false
    for name, one in pairs(link.groups) do
        local more, message = one[method](one)
        if more == nil and not write_failure and not stopping() then
            lose(link, name, message)
        end
        is_more = is_more or more
    end
    return is_more
end

-- What is due of searching and claiming, and then new events. Answers whether
-- there may be more, nil and why when there is no server.
local function pass(link)
    local now = host.clock()
    if now >= link.search_at or not next(link.groups) then
        local found, message = search(link)
        if not found then
            return nil, message
        end
        link.search_at = now + SEARCH
    end
    if now >= link.claim_at then
        local more = each_group(link, "claim")
        link.claim_at = more and now or now + link.settings.claim / 2000
    end
    return each_group(link, "read")
end

-- The application ------------------------------------------------------------

local function open_link(settings)
    return {
        settings = settings,
        servers = servers.new(settings, stopping),
        groups = {}, -- by "host:port"
        search_at = 0,
        claim_at = 0,
    }
end

-- Waits after a failure, and begins anew.
local function recover(link, failures, message)
    local pause = backoff.seconds(failures)
    dom:Log("warning", ("fleet: %s; trying again in %.0f s")
        :format(message, pause))
    link.servers:close()
    dom:Sleep(pause * 1000)
    return open_link(config.read())
end

-- Collects until the end of the agent or of the output.
local function collect_all(link)
    local failures = 0
    while not stopping() and not write_failure do
        local more, message = pass(link)
        failures = more == nil and failures + 1 or 0
        if more == nil and not stopping() then
            link = recover(link, failures, message)
        elseif not more and not stopping() then
            dom:Sleep(link.settings.interval)
        end
    end
    link.servers:close()
end

function collect.init()
    is_stopped, write_failure = false, nil
    for _, complaint in ipairs(config.complaints()) do
        dom:Log("warning", "fleet: " .. complaint)
    end
end

function collect.main()
    collect_all(open_link(config.read()))
    if write_failure then
        dom:Log("error", "fleet: standard output: " .. write_failure)
        return 1
    end
end

return collect
