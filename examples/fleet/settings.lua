-- SPDX-License-Identifier: Apache-2.0
--
-- Applies the settings that the server has for this host: two streams, one for
-- all hosts and one for this host alone, whose entries set and unset keys of
-- the domain.
--
--     XADD kza:settings * set log.keep=10 set vitals.interval=60000
--     XADD kza:settings:web1 * set vitals.interval=5000 unset log.keep
--
-- Each stream is a layer: the settings of the host itself win over those for
-- all. What was applied is remembered in a file with the place in each stream,
-- so it holds after a restart, with or without the server.

local files = require("kza.files")
local json = require("dkjson")

local Settings = {}
Settings.__index = Settings

local settings = {}

local AT_ONCE = 100 -- entries

-- Of the entries of a layer, `set` holds what is set, and `unset` the names
-- that are not.
local function new_layer()
    return { last = "0-0", set = {}, unset = {} }
end

--- `path` is the file to remember them in, `host` the host's name.
function settings.new(path, host)
    return setmetatable({
        path = path,
        host = host,
        all = new_layer(),
        own = new_layer(),
    }, Settings)
end

-- The layers -----------------------------------------------------------------

-- Keys that the agent sets itself, and the one that tells which settings are
-- the host's own.
local function is_local(name)
    return name:find("^app%.") ~= nil or name == "kza.HeartbeatNow"
        or name == "fleet.host"
end

-- Takes one field of an entry into a layer. Answers the name that it is about,
-- or nil and what is wrong with it.
local function take_field(layer, what, text)
    local name, value = text, nil
    if what == "set" then
        name, value = text:match("^([^=]+)=(.*)$")
    elseif what ~= "unset" then
        return nil, ("'%s' is neither set nor unset"):format(what)
    end
    if not name or name == "" then
        return nil, "a setting without a name"
    elseif is_local(name) then
        return nil, ("'%s' is set on the host alone"):format(name)
    end
    layer.set[name] = value
    layer.unset[name] = value == nil and true or nil
    return name
end

-- Takes an entry, {id, {what, text...}}, into a layer; adds the names that it
-- is about to `names`.
local function take_entry(layer, entry, names)
    local id, fields = entry[1], entry[2]
    for i = 1, #fields, 2 do
        local name, message = take_field(layer, fields[i], fields[i + 1])
        if name then
            names[name] = true
        else
            dom:Log("warning", ("fleet: settings %s: %s"):format(id, message))
        end
    end
    layer.last = id
end

-- Gives keys of the domain the values that they have by both layers.
function Settings:apply(names)
    local order = {}
    for name in pairs(names) do
        order[#order + 1] = name
    end
    table.sort(order)
    for _, name in ipairs(order) do
        local value = self.own.set[name] or self.all.set[name]
        dom:Set(name, value)
        -- Not the value: it may be a password.
        dom:Log("info", ("fleet: settings %s '%s'")
            :format(value and "set" or "unset", name))
    end
end

-- Remembering them -----------------------------------------------------------

local function is_layer(value)
    return type(value) == "table" and type(value.last) == "string"
        and type(value.set) == "table" and type(value.unset) == "table"
end

local function names_of(layer, names)
    for name in pairs(layer.set) do
        names[name] = true
    end
    for name in pairs(layer.unset) do
        names[name] = true
    end
end

--- Applies what is remembered. Settings of a host of another name are not ours.
function Settings:recall()
    local bytes = files.read(self.path)
    if not bytes then
        return -- nothing was ever applied
    end
    local kept = json.decode(bytes)
    if not (type(kept) == "table" and is_layer(kept.all)
        and is_layer(kept.own)) then
        dom:Log("error", ("fleet: '%s' cannot be understood; the settings "
            .. "come from the server again"):format(self.path))
        return
    end
    self.all = kept.all
    if kept.host == self.host then
        self.own = kept.own
    end
    local names = {}
    names_of(self.all, names)
    names_of(self.own, names)
    self:apply(names)
end

function Settings:remember()
    local bytes = json.encode({
        host = self.host, all = self.all, own = self.own,
    })
    local written, message = files.write(self.path, bytes)
    if not written then
        dom:Log("error", ("fleet: settings are not remembered: %s")
            :format(message))
    end
end

-- Following the streams ------------------------------------------------------

-- Takes what is new in a stream into its layer; nil and why when it cannot be
-- told whether that was all.
local function follow_stream(servers, key, layer, names)
    while true do
        local reply, message = servers:call(key, "XREAD", "COUNT",
            tostring(AT_ONCE), "STREAMS", key, layer.last)
        if not reply then
            return message == nil or nil, message
        end
        for _, entry in ipairs(reply[1][2]) do
            take_entry(layer, entry, names)
        end
    end
end

--- Applies what is new on the server. Answers true, or nil and why it cannot be
--- told.
function Settings:follow(servers, key_of_all, key_of_own)
    local before = self.all.last .. " " .. self.own.last
    local names = {}
    local all, problem = follow_stream(servers, key_of_all, self.all, names)
    local own, other = follow_stream(servers, key_of_own, self.own, names)
    if self.all.last .. " " .. self.own.last ~= before then
        self:remember()
        self:apply(names)
    end
    return all and own, problem or other
end

return settings
