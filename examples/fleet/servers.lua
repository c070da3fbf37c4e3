-- SPDX-License-Identifier: Apache-2.0
--
-- The servers of the fleet, one or a cluster, and which of them has a key.
--
-- A server of a cluster that is asked for a key of another one says where to
-- ask: MOVED, from now on; ASK, this once, while the key is being moved. What
-- they say is remembered, so no table of the cluster is needed.

local client = require("fleet.client")
local connection = require("fleet.connection")
local host = require("kza.host")

local Servers = {}
Servers.__index = Servers

local servers = {}

--- Why a transaction was not carried out, when it has to be asked for at
--- another server.
servers.MOVED = "moved"

local MOST_REDIRECTIONS = 5

-- Seconds for which a server that could not be reached is not tried again, so
-- that one who asks for several keys waits for it once.
local UNREACHABLE = 1

--- `settings` names the servers and how to speak to them; `stopping` answers
--- true once the agent is to stop. Nothing is connected yet.
function servers.new(settings, stopping)
    return setmetatable({
        settings = settings,
        stopping = stopping,
        first = 1,        -- of the settings' servers, the one to begin with
        clients = {},     -- by "host:port"
        unreachable = {}, -- by "host:port": {message=, at=}
        home = {},        -- "host:port" by key, as servers said
    }, Servers)
end

-- Says which server has the trouble, unless it is ours: we are to stop.
local function trouble_with(server, message)
    return message == connection.STOPPED and message
        or server .. ": " .. message
end

--- The client of "host:port", connected; nil and why not when it cannot be.
function Servers:client_at(server)
    local known, failure = self.clients[server], self.unreachable[server]
    if known then
        return known
    end
    if failure and host.clock() < failure.at + UNREACHABLE then
        return nil, failure.message
    end
    local made, message = client.open(server, self.settings, self.stopping)
    self.clients[server] = made
    self.unreachable[server] = nil
    if not made then
        message = trouble_with(server, message)
        self.unreachable[server] = { message = message, at = host.clock() }
    end
    return made, message
end

-- The first of the servers in the settings that can be reached.
function Servers:any_client()
    local list = self.settings.servers
    local made, message
    for i = 0, #list - 1 do
        local at = (self.first + i - 1) % #list + 1
        made, message = self:client_at(list[at])
        if made then
            self.first = at
            return made
        end
        if message == connection.STOPPED then
            break
        end
    end
    return nil, message or "no server is set"
end

-- Forgets a connection that broke, and that keys were at its server: another
-- one may have them by now.
function Servers:drop(broken)
    broken:close()
    self.clients[broken.server] = nil
    for key, server in pairs(self.home) do
        if server == broken.server then
            self.home[key] = nil
        end
    end
end

--- The client of the server that has the key, as far as is known.
function Servers:client_for(key)
    local server = self.home[key]
    if not server then
        return self:any_client()
    end
    local made, message = self:client_at(server)
    if not made then
        self.home[key] = nil
    end
    return made, message
end

--- Asks one server, whichever keys the commands are about.
function Servers:ask(of, commands)
    local replies, message = of:ask(commands)
    if not replies then
        self:drop(of)
        return nil, trouble_with(of.server, message)
    end
    return replies
end

local function error_of(reply)
    return type(reply) == "table" and reply.error or nil
end

--- "host:port" of a server of which another one tells. One that does not know
--- its own name leaves it out.
function servers.name(name, port, told_by)
    if not name or name == "" then
        name = told_by.server:match("^(.*):%d+$")
    elseif name:find(":") then
        name = "[" .. name .. "]"
    end
    return ("%s:%d"):format(name, port)
end

-- Where the first of the replies that redirects leads to.
local function redirection(replies, count, from)
    for i = 1, count do
        local text = error_of(replies[i]) or ""
        local kind, name, port = text:match("^(%u+) %d+ (.*):(%d+)$")
        if kind == "MOVED" or kind == "ASK" then
            return kind, servers.name(name, port, from)
        end
    end
end

-- The one command, at a server that has the key for this once.
function Servers:ask_once(server, command)
    local there, message = self:client_at(server)
    if not there then
        return nil, message
    end
    local replies
    replies, message = self:ask(there, { { "ASKING" }, command })
    return replies and { replies[2] }, message
end

local function value_or_error(reply, at)
    local message = error_of(reply)
    if message then
        return nil, message, at
    end
    return reply, nil, at
end

--- Asks for a key and follows redirections. Answers the reply, or nil and why
--- there is none; a reply that is an error is such a reason. Third comes the
--- client that answered.
function Servers:call(key, ...)
    local command = { ... }
    for _ = 1, MOST_REDIRECTIONS do
        local at, replies, message, kind, server
        at, message = self:client_for(key)
        if at then
            replies, message = self:ask(at, { command })
        end
        if replies then
            kind, server = redirection(replies, 1, at)
        end
        if kind == "ASK" then
            replies, message = self:ask_once(server, command)
        end
        if not replies then
            return nil, message
        elseif kind ~= "MOVED" then
            return value_or_error(replies[1], at)
        end
        self.home[key] = server
    end
    return nil, key .. ": redirected too often"
end

-- One after the other, each only after the one before was taken. This is for a
-- key that is being moved, where a transaction cannot be had.
function Servers:one_by_one(server, commands)
    local replies = {}
    for i, command in ipairs(commands) do
        local reply, message = self:ask_once(server, command)
        if not reply then
            return nil, message
        end
        replies[i] = reply[1]
        if error_of(reply[1]) then
            break
        end
    end
    return replies
end

-- Why a transaction was not carried out: the first error among its replies
-- tells more than that of EXEC.
local function reason_of(replies, count)
    for i = 1, count do
        local message = error_of(replies[i])
        if message then
            return message
        end
    end
    return "the transaction was refused"
end

--- Asks one server for all commands about a key or none of them, with nobody
--- else's in between: an array of replies, each may be an error. Answers nil
--- and why not when none was carried out or this is not known.
---
--- A redirection is remembered and not followed: at another server the key may
--- be in another state than the caller thinks.
function Servers:transaction(at, key, commands)
    local all = { { "MULTI" } }
    for i, command in ipairs(commands) do
        all[i + 1] = command
    end
    all[#all + 1] = { "EXEC" }
    local replies, message = self:ask(at, all)
    if not replies then
        return nil, message
    end
    local kind, server = redirection(replies, #all, at)
    if kind == "ASK" then
        return self:one_by_one(server, commands)
    elseif kind == "MOVED" then
        self.home[key] = server
        return nil, servers.MOVED
    end
    local results = replies[#all]
    if type(results) ~= "table" or error_of(results) then
        return nil, reason_of(replies, #all)
    end
    return results
end

--- Lets servers that could not be reached be tried again at once.
function Servers:try_again()
    self.unreachable = {}
end

function Servers:close()
    for _, known in pairs(self.clients) do
        known:close()
    end
    self.clients = {}
end

return servers
