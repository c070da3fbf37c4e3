-- SPDX-License-Identifier: Apache-2.0
--
-- The annotations, and the reference made from them, are true: they name what
-- the built agent registers, no more and no less.

local lu = require("luaunit")
local annotations = require("annotations")
local reference = require("reference")
local support = require("support")

local agent = annotations.read(support.source .. "/lua/meta/agent.lua")
local host = annotations.read(support.source .. "/lua/meta/host.lua")

local function names_of(items)
    local names = {}
    for i, item in ipairs(items) do
        names[i] = item.name
    end
    table.sort(names)
    return names
end

local function sorted_keys(map)
    local names = {}
    for name in pairs(map) do
        names[#names + 1] = name
    end
    table.sort(names)
    return names
end

local function named(items, name)
    for _, item in ipairs(items) do
        if item.name == name then
            return item
        end
    end
    error("no annotation of " .. name)
end

-- Calls a function without arguments: that fails just when one is required.
local function assert_params(item, call)
    local ok, message = pcall(call)
    local first = item.params[1]
    if first and not first.optional then
        lu.assertFalse(ok, item.name)
        lu.assertStrContains(message, "bad argument #")
    else
        lu.assertTrue(ok, item.name)
    end
    local listed = {}
    for i, param in ipairs(item.params) do
        listed[i] = param.name
    end
    lu.assertEquals(table.concat(listed, ", "), item.parameters)
end

TestDomain = {}

function TestDomain:test_methods_are_those_registered()
    lu.assertEquals(names_of(agent.functions),
        sorted_keys(getmetatable(dom).__index))
end

function TestDomain:test_required_arguments_are_required()
    for _, item in ipairs(agent.functions) do
        lu.assertTrue(item.is_method)
        assert_params(item, function() return dom[item.name](dom) end)
    end
end

function TestDomain:test_every_method_has_a_text()
    for _, item in ipairs(agent.functions) do
        lu.assertNotEquals(item.text, "", item.name)
    end
end

function TestDomain:test_log_levels_are_those_taken()
    for _, level in ipairs(named(agent.aliases, "kza.LogLevel").values) do
        dom:Log(level.name, "reference_test")
    end
    lu.assertErrorMsgContains("expected, got 'fatal'", function()
        dom:Log("fatal", "reference_test")
    end)
end

function TestDomain:test_fields_of_an_event()
    local id = dom:AgentEventWrite({ text = "t", number = 1, severity = 2 })
    local event = dom:AgentEvents(id - 1, 1)[1]
    lu.assertEquals(
        names_of(named(agent.classes, "kza.Event").fields), sorted_keys(event))
    for _, field in ipairs(named(agent.classes, "kza.NewEvent").fields) do
        local less = { text = "t", number = 1, severity = 2 }
        less[field.name] = nil
        lu.assertErrorMsgContains("'" .. field.name .. "'", function()
            dom:AgentEventWrite(less)
        end)
    end
end

TestGlobals = {}

function TestGlobals:test_all_are_there()
    for _, global in ipairs(agent.globals) do
        lu.assertNotNil(_G[global.name], global.name)
    end
    lu.assertEquals(names_of(agent.globals),
        { "arg", "dom", "dom0", "kzaAppModule" })
end

TestKeys = {}

local function documented_keys()
    local keys = {}
    for _, key in ipairs(named(agent.aliases, "kza.Key").values) do
        keys[key.name] = key.text:match("^(%l+): ")
    end
    return keys
end

-- The library has one list of the keys that it and the executable use.
function TestKeys:test_are_those_of_the_sources()
    local header = support.read(
        support.source .. "/core/include/kza_core/Dom.h")
    local keys = {}
    for name in header:gmatch('constexpr char k%w+%[%] = "([^"]+)"') do
        if name ~= "sqlite.config" then
            keys[name] = true
        end
    end
    lu.assertEquals(sorted_keys(documented_keys()), sorted_keys(keys))
end

-- An agent started with every option sets every key of its own, but those that
-- belong to background mode and to other uses.
function TestKeys:test_are_those_that_the_agent_sets()
    local place = support.directory()
    support.write(place .. "/app.lua", "return {}")
    support.write(place .. "/work/kz_agent.ini",
        "FIPSMode=0\nDumpLevel=1\n")
    support.write(place .. "/t_test.lua", [[
        test_print = function()
            for _, key in ipairs(dom:Keys("app.")) do
                print("key " .. key .. " " .. type(dom:Get(key)))
            end
        end
    ]])
    local result = support.run_agent({
        "--appname", "app", "--workdir", place .. "/work",
        "--plugins", "p", "--lua_path", place .. "/?.lua",
        "--lua_cpath", place .. "/?.so", "--trace", "Appl",
        "--unittest", place .. "/t_test.lua",
    })
    lu.assertEquals(result.status, 0, result.err)

    local set = {}
    for name, kind in result.out:gmatch("key (%S+) (%l+)") do
        set[name] = kind
    end
    local documented = documented_keys()
    for name in pairs(documented) do
        if not name:find("^app%.") or name == "app.background" then
            documented[name] = nil
        end
    end
    lu.assertEquals(set, documented)
end

TestHost = {}

function TestHost:test_functions_are_those_registered()
    lu.assertEquals(
        names_of(host.functions), sorted_keys(require("kza.host")))
    for _, item in ipairs(host.functions) do
        lu.assertNotEquals(item.text, "", item.name)
        assert_params(item, require("kza.host")[item.name])
    end
end

function TestHost:test_fields_of_its_tables()
    local real = require("kza.host")
    lu.assertEquals(names_of(named(host.classes, "kza.host.Stat").fields),
        sorted_keys(real.stat(support.agent)))

    local zip = require("kza.zip")
    local damaged = zip.pack({ { name = "x", bytes = "content" } })
        :gsub("content", "CONTENT")
    local path = support.write(support.directory() .. "/a.zip", damaged)
    lu.assertEquals(names_of(named(host.classes, "kza.host.Entry").fields),
        sorted_keys(real.entries(path, true)[1]))
end

TestStartup = {}

function TestStartup:test_functions_are_those_registered()
    local startup = annotations.read(
        support.source .. "/lua/meta/startup.lua")
    local real = require("kza.startup")
    lu.assertEquals(names_of(startup.functions), sorted_keys(real))
    for _, item in ipairs(startup.functions) do
        assert_params(item, real[item.name])
    end
end

TestModules = {}

function TestModules:test_functions_of_lua_modules_are_annotated()
    for _, name in ipairs({ "files", "zip" }) do
        local model = annotations.read(
            ("%s/lua/kza/%s.lua"):format(support.source, name))
        local documented = {}
        for _, item in ipairs(model.functions) do
            if item.text ~= "" then
                documented[#documented + 1] = item.name
            end
        end
        table.sort(documented)
        lu.assertEquals(documented, sorted_keys(require("kza." .. name)))
    end
end

TestPage = {}

function TestPage:test_is_the_one_made_from_the_annotations()
    local path = support.source .. "/docs/authors/reference.md"
    lu.assertTrue(support.read(path) == reference(support.source),
        path .. " is not what the annotations give; its head tells how to "
        .. "make it anew")
end

function TestPage:test_tells_how_to_make_it()
    local command = support.read(
        support.source .. "/docs/authors/reference.md")
        :match("\n    (build/stage/kz_agent.-)\n\n")
    command = command:gsub("build/stage/kz_agent", support.agent .. " "
        .. "--workdir " .. support.directory())
        :gsub(">docs/authors/reference.md", "")
    local result = support.run(("cd %s && %s"):format(
        support.quote(support.source), command))
    lu.assertEquals(result.status, 0, result.err)
    lu.assertTrue(result.out == reference(support.source))
end
