-- SPDX-License-Identifier: Apache-2.0
--
-- The values of the domain, as a script sees them.

local lu = require("luaunit")
local support = require("support")

local error_of = support.error_of
local new_key = support.new_key

function test_unset_key_is_nil()
    lu.assertNil(dom:Get(new_key()))
    lu.assertEquals(select("#", dom:Get(new_key())), 1)
end

function test_value_comes_back_in_its_type()
    local key = new_key()
    for _, value in ipairs({ "text", "", true, false, 0, -7, 2 ^ 53, "12" }) do
        dom:Set(key, value)
        lu.assertEquals(dom:Get(key), value)
        lu.assertEquals(type(dom:Get(key)), type(value))
    end
end

function test_set_returns_nothing()
    lu.assertEquals(select("#", dom:Set(new_key(), 1)), 0)
end

function test_keys_and_strings_are_bytes()
    local key = new_key() .. "\0\255"
    dom:Set(key, "a\0b\254")
    lu.assertEquals(dom:Get(key), "a\0b\254")
    lu.assertNil(dom:Get(key:sub(1, -2)))
end

function test_large_string()
    local key = new_key()
    dom:Set(key, ("x"):rep(10 * 1024 * 1024))
    lu.assertEquals(#dom:Get(key), 10 * 1024 * 1024)
    dom:Set(key, nil)
end

function test_nil_removes()
    local key = new_key()
    dom:Set(key, "text")
    dom:Set(key, nil)
    lu.assertNil(dom:Get(key))
    lu.assertEquals(dom:Keys(key), {})
    dom:Set(key, nil)
end

function test_number_as_key_is_its_text()
    dom:Set(4711, "by number")
    lu.assertEquals(dom:Get("4711"), "by number")
    lu.assertEquals(dom:Get(4711), "by number")
    dom:Set("4711", nil)
end

function test_integers_of_64_bits_are_taken()
    local key = new_key()
    for _, value in ipairs({ -2 ^ 63, 2 ^ 63 - 1024 }) do
        dom:Set(key, value)
        lu.assertEquals(dom:Get(key), value)
    end
end

function test_other_numbers_are_refused()
    local numbers = {
        { 1.5, "1.5" },
        { -0.5, "-0.5" },
        { 2 ^ 63, "9.2233720368548e+18" },
        { -2 ^ 63 - 2048, "-9.2233720368548e+18" },
        { math.huge, "inf" },
        { -math.huge, "-inf" },
    }
    for _, case in ipairs(numbers) do
        lu.assertEquals(
            error_of(function() dom:Set("some.key", case[1]) end),
            "bad argument #2 to 'Set' (string, boolean, integer or nil " ..
            "expected for key 'some.key', got " .. case[2] .. ")")
    end
    local message = error_of(function() dom:Set("some.key", 0 / 0) end)
    lu.assertStrContains(message, "expected for key 'some.key', got ")
    lu.assertStrContains(message, "nan")
    lu.assertNil(dom:Get("some.key"))
end

function test_other_types_are_refused()
    local values = {
        table = {},
        ["function"] = print,
        userdata = dom,
        thread = coroutine.create(print),
    }
    for name, value in pairs(values) do
        lu.assertEquals(
            error_of(function() dom:Set("some.key", value) end),
            "bad argument #2 to 'Set' (string, boolean, integer or nil " ..
            "expected for key 'some.key', got " .. name .. ")")
    end
    lu.assertNil(dom:Get("some.key"))
end

function test_missing_value_is_an_error()
    lu.assertEquals(
        error_of(function() dom:Set("some.key") end),
        "bad argument #2 to 'Set' (string, boolean, integer or nil " ..
        "expected for key 'some.key', got no value)")
end

function test_refused_value_leaves_the_old_one()
    local key = new_key()
    dom:Set(key, "old")
    error_of(function() dom:Set(key, {}) end)
    lu.assertEquals(dom:Get(key), "old")
end

function test_wrong_keys_are_errors()
    lu.assertEquals(
        error_of(function() dom:Get() end),
        "bad argument #1 to 'Get' (string expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Get({}) end),
        "bad argument #1 to 'Get' (string expected, got table)")
    lu.assertEquals(
        error_of(function() dom:Get(nil) end),
        "bad argument #1 to 'Get' (string expected, got nil)")
    lu.assertEquals(
        error_of(function() dom:Set(true, 1) end),
        "bad argument #1 to 'Set' (string expected, got boolean)")
    lu.assertEquals(
        error_of(function() dom:Keys(print) end),
        "bad argument #1 to 'Keys' (string expected, got function)")
end

function test_keys_are_sorted()
    local prefix = new_key() .. "."
    for _, name in ipairs({ "b", "a.2", "a.10", "B", "\255" }) do
        dom:Set(prefix .. name, true)
    end
    lu.assertEquals(dom:Keys(prefix), {
        prefix .. "B", prefix .. "a.10", prefix .. "a.2", prefix .. "b",
        prefix .. "\255",
    })
    lu.assertEquals(dom:Keys(prefix .. "a"), {
        prefix .. "a.10", prefix .. "a.2",
    })
    lu.assertEquals(dom:Keys(prefix .. "c"), {})
end

function test_keys_without_prefix_are_all()
    local all = dom:Keys()
    lu.assertEquals(dom:Keys(nil), all)
    lu.assertEquals(dom:Keys(""), all)
    local seen = {}
    for _, key in ipairs(all) do
        seen[key] = true
    end
    lu.assertTrue(seen["app.path.bin"])
    lu.assertTrue(seen["app.version"])
end

function test_what_the_agent_wrote_is_there()
    lu.assertEquals(dom:Get("app.name"), "lua_tests")
    lu.assertIsString(dom:Get("app.path.exe"))
    lu.assertTrue(dom:Get("app.mode.unittest"))
end
