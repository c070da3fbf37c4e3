-- SPDX-License-Identifier: Apache-2.0
--
-- The services behind the domain object: plugin directories, log and trace.

local lu = require("luaunit")
local support = require("support")

local error_of = support.error_of

local work = dom:Get("app.path.work")

local function mode_of(path)
    local result = support.run("stat -c '%F %a' " .. support.quote(path))
    return (result.out:gsub("\n$", ""))
end

-- The records of the log that hold a text, without what varies.
local function records(text)
    local found = {}
    for line in support.read(work .. "/log/lua_tests.log"):gmatch("[^\n]+") do
        if line:find(text, 1, true) then
            found[#found + 1] = line:gsub("^%S+ %S+ %[%d+:%d+%] ", "")
        end
    end
    return found
end

function test_plugin_directory_is_made_for_its_owner()
    local path = dom:GetPluginWorkdir("plug.in")
    lu.assertEquals(path, work:gsub("/$", "") .. "/plug.in")
    lu.assertEquals(mode_of(path), "directory 700")
end

function test_plugin_directory_is_closed_again()
    local path = dom:GetPluginWorkdir("open")
    support.shell("chmod 777 " .. support.quote(path))
    lu.assertEquals(dom:GetPluginWorkdir("open"), path)
    lu.assertEquals(mode_of(path), "directory 700")
end

function test_plugin_directory_that_cannot_be_made()
    support.shell("touch " .. support.quote(work .. "/file"))
    local path, message = dom:GetPluginWorkdir("file")
    lu.assertNil(path)
    lu.assertStrContains(message, "/file (error 20: Not a directory)")
end

function test_plugin_names()
    for _, name in ipairs({ "", ".", "..", "a/b", "/", "a\0b" }) do
        lu.assertEquals(
            error_of(function() dom:GetPluginWorkdir(name) end),
            "bad argument #1 to 'GetPluginWorkdir' (not the name of a plugin)")
    end
    lu.assertEquals(
        error_of(function() dom:GetPluginWorkdir() end),
        "bad argument #1 to 'GetPluginWorkdir' (string expected, got no value)")
end

function test_log_levels()
    for _, level in ipairs({ "error", "warning", "message", "info" }) do
        dom:Log(level, "logged as " .. level)
        local lines = records("logged as " .. level)
        lu.assertEquals(#lines, 1)
        lu.assertStrContains(lines[1], level:upper())
    end
    dom:Log("verbose", "some text")
    dom:Log("debug", "some text")
end

function test_log_of_strange_texts()
    dom:Log("warning", "two\nlines")
    lu.assertEquals(#records("two\\nlines"), 1)
    dom:Log("warning", "caf\233 in Latin 1")
    lu.assertEquals(#records("caf\195\169 in Latin 1"), 1)
    dom:Log("warning", "")
end

function test_log_with_wrong_arguments()
    lu.assertEquals(
        error_of(function() dom:Log("loud", "text") end),
        "bad argument #1 to 'Log' (error, warning, message, info, verbose " ..
        "or debug expected, got 'loud')")
    lu.assertEquals(
        error_of(function() dom:Log() end),
        "bad argument #1 to 'Log' (string expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Log("error") end),
        "bad argument #2 to 'Log' (string expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Log("error", {}) end),
        "bad argument #2 to 'Log' (string expected, got table)")
end

function test_trace_follows_the_domain()
    lu.assertFalse(dom:TraceIsEnabled("LuaTest"))
    dom:Trace("LuaTest", "traced while off")
    dom:Set("app.trace", "Other, LuaTest")
    lu.assertTrue(dom:TraceIsEnabled("LuaTest"))
    lu.assertFalse(dom:TraceIsEnabled("LuaTes"))
    local line
    local function trace_something()
        line = debug.getinfo(1, "l").currentline + 1
        dom:Trace("LuaTest", "traced while on")
    end
    trace_something()
    dom:Set("app.trace", nil)
    lu.assertFalse(dom:TraceIsEnabled("LuaTest"))
    dom:Trace("LuaTest", "traced while off")

    lu.assertEquals(records("traced while off"), {})
    lu.assertEquals(records("traced while on"), {
        "TRACE LuaTest: dom_services_test.lua:" .. line ..
        " trace_something traced while on",
    })
end

function test_trace_names_a_loaded_text_by_its_beginning()
    dom:Set("app.trace", "LuaTest")
    local text = "local a = 6/2; dom:Trace('LuaTest', 'traced by a text')" ..
        (" "):rep(1000) .. "\nreturn a"
    lu.assertEquals(load(text)(), 3)
    lu.assertEquals(load("dom:Trace('LuaTest', 'traced by a name')", "=x/y")(),
        nil)
    dom:Set("app.trace", nil)
    lu.assertEquals(records("traced by a text"), {
        "TRACE LuaTest: [string \"local a = 6/2; dom:Trace('LuaTest', " ..
        "'traced b...\"]:1 main chunk traced by a text",
    })
    lu.assertEquals(#records("TRACE LuaTest: y:1 main chunk traced by a name"),
        1)
end

function test_trace_of_all_and_of_more()
    dom:Set("app.trace+", "*")
    lu.assertTrue(dom:TraceIsEnabled("anything"))
    dom:Set("app.trace+", "More")
    lu.assertFalse(dom:TraceIsEnabled("anything"))
    lu.assertTrue(dom:TraceIsEnabled("More"))
    dom:Set("app.trace+", nil)
    lu.assertFalse(dom:TraceIsEnabled("More"))
end

function test_trace_with_wrong_arguments()
    lu.assertEquals(
        error_of(function() dom:Trace("LuaTest") end),
        "bad argument #2 to 'Trace' (string expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Trace({}, "text") end),
        "bad argument #1 to 'Trace' (string expected, got table)")
    lu.assertEquals(
        error_of(function() dom:TraceIsEnabled() end),
        "bad argument #1 to 'TraceIsEnabled' (string expected, got no value)")
end
