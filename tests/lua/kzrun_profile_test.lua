-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR profile.

local lu = require("luaunit")
local json = require("dkjson")
local projects = require("projects")
local support = require("support")

local kzrun, run = projects.kzrun, projects.run
local quote = support.quote

-- Uses CPU time for a while in a function of a given name.
local BURN = [[
local function burn(seconds)
    local stop = os.clock() + seconds
    local x = 0
    while os.clock() < stop do
        for i = 1, 1000 do
            x = x + i
        end
    end
end
]]

local function application(text)
    return projects.new({ ["src/demo.lua"] = BURN .. text })
end

-- The profile of speedscope.
local function profile_of(dir)
    return json.decode(support.read(dir .. "/profile.speedscope.json"))
end

-- The milliseconds in whose stack a function is, as a part of all.
local function share_of(profile, name)
    local found, all = 0, 0
    local sampled = profile.profiles[1]
    for i, stack in ipairs(sampled.samples) do
        local is_in = false
        for _, frame in ipairs(stack) do
            is_in = is_in or profile.shared.frames[frame + 1].name == name
        end
        found = found + (is_in and sampled.weights[i] or 0)
        all = all + sampled.weights[i]
    end
    return found / all
end

local function assert_about(share, expected, name)
    lu.assertTrue(math.abs(share - expected) < 0.15,
        ("%s: %g, expected %g"):format(name, share, expected))
end

TestProfile = {}

function TestProfile:test_time_is_where_it_was_spent()
    local dir = application([[
local function first() burn(0.3) end
local function second() burn(0.6) end
return { main = function() first() second() print("done") end }]])
    local result = run({ dir, "profile" })
    lu.assertEquals(result.out, "done\n")
    lu.assertStrMatches(result.err, "kzrun: %d+ ms of CPU time in %d+ samples: "
        .. "see profile%.svg in " .. dir:gsub("%p", "%%%0") .. "\n")
    local profile = profile_of(dir)
    assert_about(share_of(profile, "first"), 1 / 3, "first")
    assert_about(share_of(profile, "second"), 2 / 3, "second")
    lu.assertAlmostEquals(profile.profiles[1].endValue, 900, 150)
end

function TestProfile:test_functions_of_c_are_shown()
    local dir = application([[
return { main = function()
    burn(0.2)
    local text, stop = ("x"):rep(1e6), os.clock() + 0.4
    while os.clock() < stop do
        text:gsub("x", "y")
    end
end }]])
    run({ dir, "profile" })
    assert_about(share_of(profile_of(dir), "gsub"), 2 / 3, "gsub")
end

function TestProfile:test_coroutines_are_followed()
    local dir = application([[
local function inner() burn(0.01) end
local function generate()
    for _ = 1, 20 do
        inner()
        coroutine.yield(1)
    end
end
local function collect()
    local sum = 0
    for one in coroutine.wrap(generate) do sum = sum + one end
    local thread = coroutine.create(generate)
    while coroutine.status(thread) ~= "dead" do
        local ok, one = coroutine.resume(thread)
        assert(ok)
        sum = sum + (one or 0)
    end
    local wrong = coroutine.wrap(function() error("meant", 0) end)
    assert(select(2, pcall(wrong)) == "meant")
    return sum
end
return { main = function()
    local sum = collect()
    print(sum)
end }]])
    lu.assertEquals(run({ dir, "profile" }).out, "40\n")
    local profile = profile_of(dir)
    for _, name in ipairs({ "inner", "generate", "collect" }) do
        assert_about(share_of(profile, name), 1, name)
    end
end

function TestProfile:test_deep_stack_is_cut_and_says_so()
    local dir = application([[
local function deep(n)
    if n == 0 then return burn(0.2) end
    deep(n - 1)
    return n
end
return { main = function() deep(5000) end }]])
    run({ dir, "profile" })
    local profile = profile_of(dir)
    assert_about(share_of(profile, "burn"), 1, "burn")
    assert_about(share_of(profile, "..."), 1, "...")
end

function TestProfile:test_calls_of_the_application_are_not_disturbed()
    local dir = application([[
local poll = require("posix.poll")
local time = require("posix.time")
local quiet = require("posix.unistd").pipe()
return { main = function()
    local stop, calls = os.clock() + 0.5, 0
    while os.clock() < stop do
        burn(0.0005)
        assert(poll.rpoll(quiet, 0) == 0)
        assert(time.nanosleep({ tv_sec = 0, tv_nsec = 1000 }) == 0)
        calls = calls + 2
    end
    local pipe = io.popen("sleep 0.1; echo through")
    burn(0.05)
    print(pipe:read("*a"), os.execute("exit 3"))
end }]])
    lu.assertEquals(run({ dir, "profile" }).out,
        "through\n\tnil\texit\t3\n")
end

function TestProfile:test_hook_of_the_application_stays()
    local dir = application([[
return { main = function()
    local lines = 0
    debug.sethook(function() lines = lines + 1 end, "l")
    local stop = os.clock() + 0.3
    while os.clock() < stop do end
    local hook, mask = debug.gethook()
    debug.sethook()
    print(type(hook), mask, lines > 1000)
end }]])
    lu.assertEquals(run({ dir, "profile" }).out, "function\tl\ttrue\n")
end

function TestProfile:test_time_limit()
    local dir = application("return { main = function() burn(600) end }")
    lu.assertEquals(run({ dir, "profile", "--seconds", "0.5" }).out, "")
    assert_about(share_of(profile_of(dir), "burn"), 1, "burn")
end

function TestProfile:test_ctrl_c_keeps_the_samples()
    local dir = application([[
return { main = function() print("up") burn(600) end }]])
    local result = support.run(([[
%s/kzrun %s profile >%s/out &
until grep -q up %s/out 2>/dev/null; do sleep 0.05; done
sleep 0.3
kill -INT $! && wait $!]]):format(quote(support.stage), quote(dir), quote(dir),
        quote(dir)))
    lu.assertEquals(result.status, 0, result.err)
    assert_about(share_of(profile_of(dir), "burn"), 1, "burn")
end

function TestProfile:test_status_and_words_are_the_applications()
    local dir = application(
        "return { main = function() return tonumber(arg[1]) end }")
    lu.assertEquals(kzrun({ dir, "profile", "--", "7" }).status, 7)
end

function TestProfile:test_application_that_does_not_load()
    local dir = projects.new({ ["src/demo.lua"] = "x x" })
    local result = kzrun({ dir, "profile" })
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, "error loading module 'demo'")
end

function TestProfile:test_wrong_usage()
    for _, text in ipairs({ "0", "-1", "x" }) do
        local result = kzrun({ "nowhere", "profile", "--seconds=" .. text })
        lu.assertEquals(result.status, 2)
        lu.assertStrContains(result.err,
            ("kzrun: '%s' is no time in seconds; "):format(text))
    end
end

TestFiles = {}

function TestFiles:setUp()
    self.dir = application([[
local t = {}
t["odd;\n<name> & \255"] = function() burn(0.1) return true end
local function plain() burn(0.1) end
return { main = function()
    plain()
    local done = t["odd;\n<name> & \255"]()
    return not done
end }]])
    run({ self.dir, "profile" })
end

function TestFiles:test_speedscope_accepts_its_file()
    local checked = support.run(([[python3 -c '
import json, jsonschema, sys
profile = json.load(open(sys.argv[1]))
jsonschema.validate(profile, json.load(open(sys.argv[2])))
sampled = profile["profiles"][0]
assert sampled["unit"] == "milliseconds"
assert len(sampled["samples"]) == len(sampled["weights"]) > 0
frames = len(profile["shared"]["frames"])
assert all(0 <= i < frames for stack in sampled["samples"] for i in stack)
assert abs(sum(sampled["weights"]) - sampled["endValue"]) < 1e-3
' %s/profile.speedscope.json %s/tests/lua/support/speedscope_schema.json]])
        :format(quote(self.dir), quote(support.source)))
    lu.assertEquals(checked, { status = 0, out = "", err = "" })
end

function TestFiles:test_folded_lines()
    local text = support.read(self.dir .. "/profile.folded")
    lu.assertStrMatches(text, ".*main src/demo%.lua:%d+;"
        .. "plain src/demo%.lua:%d+;burn src/demo%.lua:%d+ %d+\n.*")
    for line in text:gmatch("([^\n]*)\n") do
        lu.assertStrMatches(line, ".+ %d+")
    end
    lu.assertStrContains(text, "odd, <name> & \239\191\189 src/demo.lua")
end

function TestFiles:test_flame_graph_is_one_file_of_good_form()
    local text = support.read(self.dir .. "/profile.svg")
    lu.assertNil(text:find("href"))
    lu.assertNil(text:find("src="))
    local read = support.run(([[python3 -c '
import sys, xml.etree.ElementTree as tree
svg = "{http://www.w3.org/2000/svg}"
root = tree.parse(sys.argv[1]).getroot()
frames = [g for g in root.iter(svg + "g") if g.get("class") == "frame"]
for g in frames:
    assert g.find(svg + "title").text.startswith(g.get("data-label") + ": ")
    assert float(g.find(svg + "rect").get("width")) >= 0
print([g.get("data-label") for g in frames if "odd" in g.get("data-label")])
print(len([x for x in root.iter() if x.get("id") == "search"]))
' %s/profile.svg]]):format(quote(self.dir)))
    lu.assertEquals(read.err, "")
    lu.assertStrContains(read.out, "['odd; <name> & \239\191\189 src/demo.lua:")
    lu.assertStrContains(read.out, "]\n1\n")
end
