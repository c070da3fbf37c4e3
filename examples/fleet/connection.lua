-- SPDX-License-Identifier: Apache-2.0
--
-- A connection to a server, over TCP or TLS. Every call waits in steps of a
-- tenth of a second and asks in between whether the agent is to stop, so that
-- a stop is followed at once, whatever the server does or does not do.

local socket = require("socket")

local certificate = require("fleet.certificate")
local host_of = require("kza.host")
local names = require("fleet.names")

local Connection = {}
Connection.__index = Connection

local connection = {}

-- Seconds.
local STEP = 0.1
local LOOK = 0.02    -- at what a child has found out
local PATIENCE = 10  -- in which something has to happen

--- The message of a call that was cut short by a stop.
connection.STOPPED = "the agent is to stop"

-- What a call says that has to be repeated.
local UNFINISHED = { timeout = true, wantread = true, wantwrite = true }

-- Counts the patience down. The result is for one piece of work: it answers
-- true to go on, else nil and why not.
local function pause_for(stopping)
    local deadline = host_of.clock() + PATIENCE
    return function()
        if stopping() then
            return nil, connection.STOPPED
        end
        if host_of.clock() > deadline then
            return nil, "no answer"
        end
        return true
    end
end

-- Repeats a call until it is done, has failed, or is to be given up.
local function finish(call, pause)
    while true do
        local result, message = call()
        if result or not UNFINISHED[message] then
            return result, message
        end
        local going_on, reason = pause()
        if not going_on then
            return nil, reason
        end
    end
end

-- An attempt goes on in the system after the first call; it has ended once the
-- socket can be written to, and calling again tells how.
local function connect_to(address, port, pause)
    local tcp = socket.tcp()
    tcp:settimeout(STEP)
    local connected, message = tcp:connect(address, port)
    if not connected and message == "timeout" then
        connected, message = finish(function()
            local _, writable = socket.select(nil, { tcp }, STEP)
            if not writable[1] then
                return nil, "timeout"
            end
            local done, reason = tcp:connect(address, port)
            return done or reason == "already connected", reason
        end, pause)
    end
    if not connected then
        tcp:close()
        return nil, message
    end
    tcp:setoption("tcp-nodelay", true)
    return tcp
end

local function connect(host, port, pause)
    local addresses, message = names.addresses(host, function()
        socket.sleep(LOOK)
        return pause()
    end)
    for _, address in ipairs(addresses or {}) do
        local tcp
        tcp, message = connect_to(address, port, pause)
        if tcp or message == connection.STOPPED then
            return tcp, message
        end
    end
    return nil, message
end

-- Turns a connection into one that is encrypted and whose other end is known.
local function secure(tcp, host, ca, pause)
    local ssl = require("ssl")
    local tls, message = ssl.wrap(tcp, {
        mode = "client",
        protocol = "any",
        options = { "all", "no_sslv3", "no_tlsv1", "no_tlsv1_1" },
        verify = "peer",
        cafile = ca,
        capath = not ca and "/etc/ssl/certs" or nil,
    })
    if not tls then
        tcp:close()
        return nil, "TLS: " .. message
    end
    tls:settimeout(STEP)
    if not host:find("^[%d.]+$") and not host:find(":") then
        tls:sni(host)
    end
    local done
    done, message = finish(function() return tls:dohandshake() end, pause)
    if done and not certificate.names(tls:getpeercertificate(), host) then
        done, message = nil, "the certificate is not that of " .. host
    end
    if not done then
        tls:close()
        return nil, message == connection.STOPPED and message
            or "TLS: " .. message
    end
    return tls
end

--- Connects to "host:port"; nil and why not when it fails.
---
--- `options` are those of the settings, `tls` and `ca`; `stopping` answers true
--- once the agent is to stop.
function connection.open(server, options, stopping)
    local host, port = server:match("^%[?(.-)%]?:(%d+)$")
    local pause = pause_for(stopping)
    local stream, message = connect(host, tonumber(port), pause)
    if stream and options.tls then
        stream, message = secure(stream, host, options.ca, pause)
    end
    if not stream then
        return nil, message
    end
    stream:settimeout(STEP)
    return setmetatable({ stream = stream, stopping = stopping }, Connection)
end

--- Sends all of the bytes; nil and why not when it fails. Patience begins anew
--- with each part that went out.
function Connection:send(bytes)
    local sent = 0
    repeat
        local last, message = finish(function()
            local all, reason, part = self.stream:send(bytes, sent + 1)
            local progress = not all and part > sent and part
            return all or progress, reason
        end, pause_for(self.stopping))
        if not last then
            return nil, message
        end
        sent = last
    until sent >= #bytes
    return sent
end

--- Receives a line without its end ("*l"), or so many bytes; nil and why not
--- when it fails. Patience begins anew with each part that came.
function Connection:receive(what)
    local part = ""
    repeat
        local progress, message = finish(function()
            local all, reason, before = self.stream:receive(what, part)
            local more = all or before
            local grown = all or #more > #part
            part = more
            return grown, reason
        end, pause_for(self.stopping))
        if not progress then
            return nil, message
        end
    until progress ~= true
    return part
end

function Connection:close()
    self.stream:close()
end

return connection
