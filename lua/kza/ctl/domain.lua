-- SPDX-License-Identifier: Apache-2.0
--
-- The commands of kzctl that talk to the running agent through its control
-- socket: get, set, unset, keys, watch, trace, heartbeat and version.

local fail = require("kza.ctl.fail")
local host = require("kza.host")
local json = require("dkjson")
local show = require("kza.ctl.show")

local SECONDS = 5 -- for an agent to answer

local function connect(where)
    local connection, message = host.connect(where.socket, SECONDS)
    if not connection then
        fail("no answer at '%s': %s (it is there while '%s' runs with the "
            .. "setting control.socket)", where.socket, message, where.name)
    end
    return connection
end

-- An integer for JSON, kept as digits: a Lua number would hold only 53 bits.
local function exact(digits)
    local function text()
        return digits
    end
    return setmetatable({}, { __tostring = text, __tojson = text })
end

local function receive(connection, seconds)
    local line, message = connection:line(seconds)
    if not line then
        return nil, message
    end
    local answer = json.decode(line)
    if type(answer) ~= "table" then
        fail("the agent answers what is no JSON: %s", line:sub(1, 60))
    end
    if answer.type == "number" then
        answer.value = exact(line:match('"value":(-?%d+)}$'))
    end
    if not answer.ok then
        fail("%s", tostring(answer.error))
    end
    return answer
end

-- One request and its answer.
local function ask(connection, request)
    local sent, message = connection:send(json.encode(request) .. "\n", SECONDS)
    local answer
    if sent then
        answer, message = receive(connection, SECONDS)
    end
    if not answer then
        fail("the agent does not answer: %s", message)
    end
    return answer
end

local function show_value(context, key, answer)
    if context.json then
        show.json({ key = key, type = answer.type, value = answer.value,
            base64 = answer.base64 },
            answer.base64 and { "key", "type", "base64" }
            or { "key", "type", "value" })
    elseif answer.type == "nil" then
        show.line("(not set)")
    else
        show.line(answer.base64 and "base64:" .. answer.base64
            or tostring(answer.value))
    end
end

local function get(context)
    local key = context.args.key
    local answer = ask(connect(context.where), { ["do"] = "get", key = key })
    local is_set = answer.type ~= "nil"
    if is_set or context.json then
        show_value(context, key, answer)
    else
        fail("'%s' is not set", key)
    end
    return is_set and 0 or 1
end

local BOOLEANS = {
    ["true"] = true, ["1"] = true, ["false"] = false, ["0"] = false,
}

local function value_of(args)
    local text = args.value
    if args.int then
        local sign, digits = text:match("^%s*([+-]?)0*(%d+)%s*$")
        if not digits then
            fail("'%s' is no integer", text)
        end
        return exact((sign == "-" and "-" or "") .. digits)
    end
    if args.bool then
        if BOOLEANS[text] == nil then
            fail("'%s' is neither true nor false", text)
        end
        return BOOLEANS[text]
    end
    return text
end

local function set(context)
    local args = context.args
    ask(connect(context.where),
        { ["do"] = "set", key = args.key, value = value_of(args) })
    return 0
end

local function unset(context)
    ask(connect(context.where), { ["do"] = "unset", key = context.args.key })
    return 0
end

local function keys(context)
    local connection = connect(context.where)
    local answer = ask(connection,
        { ["do"] = "keys", prefix = context.args.prefix or "" })
    for _, key in ipairs(answer.keys) do
        if type(key) == "table" then
            -- A name that is not UTF-8 cannot be used in a JSON request.
            key = "base64:" .. key.base64
        end
        if context.json then
            show_value(context, key,
                ask(connection, { ["do"] = "get", key = key }))
        else
            show.line(key)
        end
    end
    return 0
end

local function watch(context)
    local key = context.args.key
    local connection = connect(context.where)
    local answer = ask(connection, { ["do"] = "watch", key = key })
    while answer do
        show_value(context, key, answer)
        local message
        repeat
            answer, message = receive(connection, 3600)
        until answer or message ~= "timeout"
    end
    fail("the agent has gone")
end

local function split(list)
    local names = {}
    for name in list:gmatch("[^,]+") do
        name = name:match("^%s*(.-)%s*$")
        if name ~= "" then
            names[#names + 1] = name
        end
    end
    return names
end

local function without(names, name)
    local rest, found = {}, false
    for _, one in ipairs(names) do
        if one == name then
            found = true
        else
            rest[#rest + 1] = one
        end
    end
    return rest, found
end

local function has(names, name)
    return select(2, without(names, name))
end

local TRACE_KEYS = { "app.trace", "app.trace+" }

local function read_components(connection)
    local lists = {}
    for _, key in ipairs(TRACE_KEYS) do
        local answer = ask(connection, { ["do"] = "get", key = key })
        lists[key] = show.array(
            split(answer.type == "string" and answer.value or ""))
    end
    return lists
end

local function store(connection, key, names)
    ask(connection,
        { ["do"] = "set", key = key, value = table.concat(names, ",") })
end

local function add_component(connection, lists, name)
    local names = lists["app.trace"]
    if not has(names, name) then
        names[#names + 1] = name
        store(connection, "app.trace", names)
    end
end

local function remove_component(connection, lists, name)
    for _, key in ipairs(TRACE_KEYS) do
        if name ~= "*" and has(lists[key], "*") then
            fail("all components are traced ('*'): '%s' alone cannot be taken "
                .. "out", name)
        end
    end
    for _, key in ipairs(TRACE_KEYS) do
        local rest, found = without(lists[key], name)
        if found then
            lists[key] = show.array(rest)
            store(connection, key, rest)
        end
    end
end

local function trace(context)
    local change = context.args.change
    local sign, name = (change or ""):match("^([+-])(.+)$")
    if change and not sign then
        fail("'%s' is neither +NAME nor -NAME", change)
    end
    local connection = connect(context.where)
    local lists = read_components(connection)
    if sign == "+" then
        add_component(connection, lists, name)
    elseif sign == "-" then
        remove_component(connection, lists, name)
    end
    if context.json then
        show.json(lists, TRACE_KEYS)
        return 0
    end
    for _, key in ipairs(TRACE_KEYS) do
        show.row({ { text = key, width = 10 } },
            table.concat(lists[key], ", "))
    end
    return 0
end

local function heartbeat(context)
    ask(connect(context.where),
        { ["do"] = "set", key = "kza.HeartbeatNow", value = true })
    return 0
end

local VERSIONS = { "kzctl", "agent", "wxwidgets", "lua", "openssl", "sqlite" }

local function version(context)
    local versions = host.versions()
    local connection = host.connect(context.where.socket, SECONDS)
    local agent = connection
        and ask(connection, { ["do"] = "version" }).version
    local found = {
        kzctl = dom:Get("app.version"), agent = agent,
        wxwidgets = versions.wxwidgets, lua = versions.lua,
        openssl = versions.openssl, sqlite = versions.sqlite,
    }
    if context.json then
        show.json(found, VERSIONS)
        return 0
    end
    for _, name in ipairs(VERSIONS) do
        show.row({ { text = name, width = 9 } }, found[name]
            or "unknown: it does not run, or not with control.socket")
    end
    return 0
end

local function takes_key(command)
    command:argument("key", "name of the key"):argname("KEY")
end

local NEEDS_SOCKET = [[


The agent answers through its control socket: it has to run with the setting
control.socket.]]

return {
    {
        name = "get",
        summary = "shows a key of the running agent",
        description = "Shows the value of a key of the domain. Ends with 1 "
            .. "when it is not set." .. NEEDS_SOCKET,
        define = takes_key,
        json = { "key", "type", "value" },
        run = get,
    },
    {
        name = "set",
        summary = "sets a key of the running agent",
        description = "Sets a key of the domain to a text, or with --bool to "
            .. "true or false, or with --int to an integer." .. NEEDS_SOCKET,
        define = function(command)
            command:mutex(
                command:flag("--bool", "the value is true or false"),
                command:flag("--int", "the value is an integer"))
            takes_key(command)
            command:argument("value", "its value"):argname("VALUE")
        end,
        run = set,
    },
    {
        name = "unset",
        summary = "removes a key of the running agent",
        description = "Removes a key of the domain." .. NEEDS_SOCKET,
        define = takes_key,
        run = unset,
    },
    {
        name = "keys",
        summary = "lists keys of the running agent",
        description = "Lists the keys of the domain that begin with PREFIX, "
            .. "with --json their values too." .. NEEDS_SOCKET,
        define = function(command)
            command:argument("prefix", "beginning of the keys"):args("?")
                :argname("PREFIX")
        end,
        json = { "key", "type", "value" },
        run = keys,
    },
    {
        name = "watch",
        summary = "shows a key and each change of it",
        description = "Shows the value of a key now and after each change. "
            .. "Ends with 1 when the agent goes, with 0 on Ctrl-C."
            .. NEEDS_SOCKET,
        define = takes_key,
        json = { "key", "type", "value" },
        run = watch,
    },
    {
        name = "trace",
        summary = "shows or changes what is traced",
        description = "Shows the components that are traced: those of "
            .. "app.trace and of app.trace+. +NAME adds one, -NAME takes one "
            .. "out." .. NEEDS_SOCKET,
        define = function(command)
            command:argument("change", "+NAME or -NAME"):args("?")
                :argname("+NAME|-NAME")
        end,
        json = TRACE_KEYS,
        run = trace,
    },
    {
        name = "heartbeat",
        summary = "asks for a heartbeat at once",
        description = "Sets kza.HeartbeatNow, which asks the running agent "
            .. "for a heartbeat at once." .. NEEDS_SOCKET,
        run = heartbeat,
    },
    {
        name = "version",
        summary = "versions of kzctl and of the running agent",
        description = "Shows the version of this program, of the libraries "
            .. "that it is linked with, and of the running agent when it "
            .. "answers through its control socket.",
        json = VERSIONS,
        run = version,
    },
}
