-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl get, set, unset, keys and watch: the domain of the running agent.

local agent = require("kza.ctl.agent")
local fail = require("kza.ctl.fail")
local show = require("kza.ctl.show")

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
    local answer = agent.ask(agent.connect(context.where),
        { ["do"] = "get", key = key })
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
        return agent.exact((sign == "-" and "-" or "") .. digits)
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
    agent.ask(agent.connect(context.where),
        { ["do"] = "set", key = args.key, value = value_of(args) })
    return 0
end

local function unset(context)
    agent.ask(agent.connect(context.where),
        { ["do"] = "unset", key = context.args.key })
    return 0
end

local function keys(context)
    local connection = agent.connect(context.where)
    local answer = agent.ask(connection,
        { ["do"] = "keys", prefix = context.args.prefix or "" })
    for _, key in ipairs(answer.keys) do
        if type(key) == "table" then
            -- A name that is not UTF-8 cannot be used in a JSON request.
            key = "base64:" .. key.base64
        end
        if context.json then
            show_value(context, key,
                agent.ask(connection, { ["do"] = "get", key = key }))
        else
            show.line(key)
        end
    end
    return 0
end

local function watch(context)
    local key = context.args.key
    local connection = agent.connect(context.where)
    local answer = agent.ask(connection, { ["do"] = "watch", key = key })
    while answer do
        show_value(context, key, answer)
        local message
        repeat
            answer, message = agent.receive(connection, 3600)
        until answer or message ~= "timeout"
    end
    fail("the agent has gone")
end

local function takes_key(command)
    command:argument("key", "name of the key"):argname("KEY")
end

return {
    {
        name = "get",
        summary = "shows a key of the running agent",
        description = "Shows the value of a key of the domain. Ends with 1 "
            .. "when it is not set." .. agent.NEEDS_SOCKET,
        define = takes_key,
        json = { "key", "type", "value" },
        run = get,
    },
    {
        name = "set",
        summary = "sets a key of the running agent",
        description = "Sets a key of the domain to a text, or with --bool to "
            .. "true or false, or with --int to an integer."
            .. agent.NEEDS_SOCKET,
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
        description = "Removes a key of the domain." .. agent.NEEDS_SOCKET,
        define = takes_key,
        run = unset,
    },
    {
        name = "keys",
        summary = "lists keys of the running agent",
        description = "Lists the keys of the domain that begin with PREFIX, "
            .. "with --json their values too." .. agent.NEEDS_SOCKET,
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
            .. agent.NEEDS_SOCKET,
        define = takes_key,
        json = { "key", "type", "value" },
        run = watch,
    },
}
