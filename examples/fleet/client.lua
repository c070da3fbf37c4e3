-- SPDX-License-Identifier: Apache-2.0
--
-- A client of one server: lua-redis over a connection of ours.
--
-- lua-redis raises an error for each reply that is one. Here such a reply is a
-- value, {error = text}, because one of many replies may be an error that is
-- expected. Many commands go out at once, and then their replies are read.

local redis = require("redis")

local connection = require("fleet.connection")

local Client = {}
Client.__index = Client

local client = {}

-- The reply to a command that has already been sent.
local next_reply = redis.command("REPLY", { request = function() end })

local function error_as_value(message)
    local text = message:match("^redis error: (.*)$")
    if not text then
        error(message, 0)
    end
    return { error = text }
end

-- Makes lua-redis keep what it would send, so that one call sends it all.
local function kept_back(driver)
    local kept = {}
    driver.network.write = function(_, bytes)
        kept[#kept + 1] = bytes
    end
    return function()
        local bytes = table.concat(kept)
        kept = {}
        return bytes
    end
end

--- Sends commands, each an array of words, and reads their replies: texts,
--- numbers, arrays, true for OK, nil, or {error = text}.
---
--- Answers nil and why not when the connection fails; it is of no more use
--- then.
function Client:ask(commands)
    for _, command in ipairs(commands) do
        self.driver.requests.multibulk(self.driver, table.unpack(command))
    end
    local sent, message = self.stream:send(self.take_kept())
    if not sent then
        return nil, message
    end
    local replies = {}
    local read, reason = pcall(function()
        for i = 1, #commands do
            replies[i] = next_reply(self.driver)
        end
    end)
    if not read then
        return nil, (reason:gsub("^connection error: ", ""))
    end
    return replies
end

function Client:close()
    self.stream:close()
end

-- Says who we are, when the settings have something to say.
local function log_in(self, options)
    if not options.password then
        return true
    end
    local replies, message = self:ask({
        options.user and { "AUTH", options.user, options.password }
            or { "AUTH", options.password },
    })
    if replies and replies[1] ~= true then
        message = replies[1].error
    end
    return message == nil, message
end

--- Connects to "host:port" and logs in; nil and why not when it fails. For
--- `options` and `stopping` see the connection.
function client.open(server, options, stopping)
    local stream, message = connection.open(server, options, stopping)
    if not stream then
        return nil, message
    end
    local driver = redis.connect({ socket = stream })
    driver.error = error_as_value
    local self = setmetatable({
        server = server,
        stream = stream,
        driver = driver,
        take_kept = kept_back(driver),
    }, Client)
    local logged_in
    logged_in, message = log_in(self, options)
    if not logged_in then
        self:close()
        return nil, message
    end
    return self
end

return client
