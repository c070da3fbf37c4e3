-- SPDX-License-Identifier: Apache-2.0
--
-- The class of the domain object.

local lu = require("luaunit")
local support = require("support")

local error_of = support.error_of

local METHODS = {
    "AgentEventWrite", "AgentEvents", "Get", "GetPluginWorkdir", "Keys",
    "Log", "ReadArchive", "Set", "Sleep", "Trace", "TraceIsEnabled",
    "Wait",
}

function test_both_globals_are_one_object()
    lu.assertEquals(type(dom), "userdata")
    lu.assertTrue(rawequal(dom, dom0))
end

function test_metatable()
    local class = getmetatable(dom)
    lu.assertEquals(class, debug.getregistry()["SLB.Dom"])
    lu.assertEquals(class.__class, "SLB.Dom")
    lu.assertIsTable(class.__index)
    lu.assertIsFunction(class.__gc)
    lu.assertEquals(getmetatable(class.__index), {})
end

function test_methods()
    local methods = getmetatable(dom).__index
    for _, name in ipairs(METHODS) do
        lu.assertIsFunction(methods[name], name)
    end
    lu.assertNil(dom.NoSuchMethod)
end

function test_collecting_a_reference_leaves_the_domain()
    dom:Set("dom_class_test.kept", "kept")
    getmetatable(dom).__gc(dom)
    collectgarbage()
    lu.assertEquals(dom:Get("dom_class_test.kept"), "kept")
    dom:Set("dom_class_test.kept", nil)
end

function test_collecting_survives_anything()
    local collect = getmetatable(dom).__gc
    collect()
    collect(nil)
    collect({})
    collect(io.stdout)
end

function test_wrong_self_is_an_error()
    local values = {
        { "text", "string" },
        { 1, "number" },
        { {}, "table" },
        { io.stdout, "userdata" },
    }
    for _, name in ipairs(METHODS) do
        for _, case in ipairs(values) do
            lu.assertStrContains(
                error_of(dom[name], case[1], "key", 1),
                "(SLB.Dom expected, got " .. case[2] .. ")")
        end
        lu.assertStrContains(error_of(dom[name]),
            "(SLB.Dom expected, got no value)")
    end
end

function test_wrong_self_in_the_usual_wording()
    local get = dom.Get
    lu.assertEquals(error_of(function() get("key") end),
        "bad argument #1 to 'get' (SLB.Dom expected, got string)")
    local fake = { Get = get }
    lu.assertEquals(error_of(function() fake:Get("key") end),
        "calling 'Get' on bad self (SLB.Dom expected, got table)")
end

function test_methods_work_in_a_coroutine()
    local value = coroutine.wrap(function()
        dom:Set("dom_class_test.co", 1)
        coroutine.yield(dom:Get("dom_class_test.co"))
    end)()
    lu.assertEquals(value, 1)
    dom:Set("dom_class_test.co", nil)
end

function test_domain_in_a_finalizer()
    local seen
    setmetatable({}, {
        __gc = function()
            dom:Set("dom_class_test.gc", "set by the collector")
            seen = dom:Get("dom_class_test.gc")
        end,
    })
    -- The collector runs while dom:Get makes its strings.
    dom:Set("dom_class_test.text", ("x"):rep(10000))
    local texts = {}
    for i = 1, 1000 do
        texts[i] = dom:Get("dom_class_test.text") .. i
    end
    collectgarbage()
    lu.assertEquals(#texts, 1000)
    lu.assertEquals(seen, "set by the collector")
    dom:Set("dom_class_test.gc", nil)
    dom:Set("dom_class_test.text", nil)
end
