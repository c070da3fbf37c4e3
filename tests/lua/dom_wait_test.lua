-- SPDX-License-Identifier: Apache-2.0
--
-- Waiting in a script. That other threads wake it is tested in C++.

local lu = require("luaunit")
local support = require("support")

local error_of = support.error_of
local new_key = support.new_key

local LONG = 1e9 -- milliseconds; a test that waits as long has failed

function test_wait_times_out()
    local key = new_key()
    lu.assertFalse(dom:Wait(key, 0))
    lu.assertFalse(dom:Wait(key, 20))
    lu.assertFalse(dom:Wait(key, 0.5))
    lu.assertFalse(dom:Wait(key, -1))
    lu.assertFalse(dom:Wait(key, -math.huge))
end

function test_change_between_two_waits_is_not_missed()
    local key = new_key()
    dom:Set(key, "before the first wait")
    lu.assertFalse(dom:Wait(key, 0))
    for _, value in ipairs({ "a", "a", true, true, 1, 1, "last" }) do
        dom:Set(key, value)
        lu.assertTrue(dom:Wait(key, LONG))
        lu.assertFalse(dom:Wait(key, 0))
    end
    dom:Set(key, nil)
    lu.assertTrue(dom:Wait(key, math.huge))
    lu.assertFalse(dom:Wait(key, 0))
    dom:Set(key, nil)
    lu.assertFalse(dom:Wait(key, 0))
end

function test_several_changes_are_one()
    local key = new_key()
    lu.assertFalse(dom:Wait(key, 0))
    dom:Set(key, 1)
    dom:Set(key, 2)
    lu.assertTrue(dom:Wait(key, LONG))
    lu.assertFalse(dom:Wait(key, 0))
end

function test_keys_are_waited_for_apart()
    local one, other = new_key(), new_key()
    lu.assertFalse(dom:Wait(one, 0))
    lu.assertFalse(dom:Wait(other, 0))
    dom:Set(one, 1)
    lu.assertFalse(dom:Wait(other, 0))
    lu.assertTrue(dom:Wait(one, LONG))
end

function test_number_and_its_text_are_one_key()
    lu.assertFalse(dom:Wait(4712, 0))
    dom:Set("4712", true)
    lu.assertTrue(dom:Wait("4712", 0))
    lu.assertFalse(dom:Wait(4712, 0))
    dom:Set("4712", nil)
end

function test_sleep()
    lu.assertTrue(dom:Sleep(0))
    lu.assertTrue(dom:Sleep(-1))
    lu.assertTrue(dom:Sleep(1.5))
    local before = os.time()
    lu.assertTrue(dom:Sleep(1100))
    lu.assertTrue(os.time() > before)
end

function test_wrong_arguments_are_errors()
    lu.assertEquals(
        error_of(function() dom:Wait() end),
        "bad argument #1 to 'Wait' (string expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Wait("k") end),
        "bad argument #2 to 'Wait' (number expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Wait("k", "soon") end),
        "bad argument #2 to 'Wait' (number expected, got string)")
    lu.assertEquals(
        error_of(function() dom:Wait("k", 0 / 0) end),
        "bad argument #2 to 'Wait' (not a number of milliseconds)")
    lu.assertEquals(
        error_of(function() dom:Sleep() end),
        "bad argument #1 to 'Sleep' (number expected, got no value)")
    lu.assertEquals(
        error_of(function() dom:Sleep(0 / 0) end),
        "bad argument #1 to 'Sleep' (not a number of milliseconds)")
end
