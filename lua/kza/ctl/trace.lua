-- SPDX-License-Identifier: Apache-2.0
--
-- kzctl trace: which components the running agent traces.

local agent = require("kza.ctl.agent")
local fail = require("kza.ctl.fail")
local show = require("kza.ctl.show")

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
        local answer = agent.ask(connection, { ["do"] = "get", key = key })
        lists[key] = show.array(
            split(answer.type == "string" and answer.value or ""))
    end
    return lists
end

local function store(connection, key, names)
    agent.ask(connection,
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
    local connection = agent.connect(context.where)
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

return {
    {
        name = "trace",
        summary = "shows or changes what is traced",
        description = "Shows the components that are traced: those of "
            .. "app.trace and of app.trace+. +NAME adds one, -NAME takes one "
            .. "out." .. agent.NEEDS_SOCKET,
        define = function(command)
            command:argument("change", "+NAME or -NAME"):args("?")
                :argname("+NAME|-NAME")
        end,
        json = TRACE_KEYS,
        run = trace,
    },
}
