-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR test.

local lu = require("luaunit")
local projects = require("projects")
local support = require("support")

local kzrun, run = projects.kzrun, projects.run

local APP = [[
return {
    init = function() print("init") end,
    main = function() print("main") end,
    shutdown = function() print("shutdown") end,
}
]]

-- A project with these scripts below tests/, {name = text}.
local function project(scripts, more)
    local files = { ["src/demo.lua"] = APP }
    for name, text in pairs(scripts) do
        files["tests/" .. name] = text
    end
    for name, text in pairs(more or {}) do
        files[name] = text
    end
    return projects.new(files)
end

local PASSES = "TestPass = { test_it = function() print('it') end }"
local FAILS = [[
TestFail = { test_it = function()
    require("luaunit").assertEquals(1, 2)
end }]]

TestOutcome = {}

function TestOutcome:test_success()
    local result = run({ project({ ["a_test.lua"] = PASSES }), "test" })
    lu.assertStrContains(result.out, "init\n")
    lu.assertStrContains(result.out, "Ran 1 tests in ")
    lu.assertStrContains(result.out, "shutdown\n")
    lu.assertNil(result.out:find("main\n"))
end

function TestOutcome:test_failure()
    local dir = project({ ["a_test.lua"] = PASSES, ["b_test.lua"] = FAILS })
    local result = kzrun({ dir, "test" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.out, "1) TestFail.test_it\n")
    lu.assertStrContains(result.out, dir .. "/tests/b_test.lua:2: in function "
        .. "'TestFail.test_it'\n")
    lu.assertStrContains(result.out, "Ran 2 tests in ")
end

function TestOutcome:test_two_failures_are_status_1_too()
    local dir = project({ ["a_test.lua"] = FAILS, ["b_test.lua"] = FAILS })
    lu.assertEquals(kzrun({ dir, "test" }).status, 1)
end

function TestOutcome:test_script_that_does_not_load()
    local dir = project({ ["a_test.lua"] = PASSES, ["b_test.lua"] = "x x" })
    local result = kzrun({ dir, "test" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err, "kzrun: cannot load " .. dir
        .. "/tests/b_test.lua: ")
    lu.assertStrContains(result.out, "Ran 2 tests in ")
end

function TestOutcome:test_scripts_are_found_below_and_by_their_names()
    local dir = project({
        ["a_test.lua"] = "print('@a')", ["deep/er/b_test.lua"] = "print('@b')",
        ["helper.lua"] = "print('@helper')", [".c_test.lua"] = "print('@c')",
        ["d_test.lua"] = PASSES,
    })
    local out = run({ dir, "test" }).out
    lu.assertStrContains(out, "@a\n")
    lu.assertStrContains(out, "@b\n")
    lu.assertNil(out:find("@helper"))
    lu.assertNil(out:find("@c"))
end

function TestOutcome:test_no_test_is_a_failure()
    local dir = project({ ["helper.lua"] = "" })
    local result = kzrun({ dir, "test" })
    lu.assertEquals(result.status, 1)
    lu.assertEquals(result.err, ("kzrun: there is no test: no file is named "
        .. "*_test.lua in %s/tests\n"):format(dir))
    result = kzrun({ project({ ["a_test.lua"] = "" }), "test" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err, "kzrun: no test found\n")
end

function TestOutcome:test_end_of_the_process_is_no_success()
    local dir = project({ ["a_test.lua"] = [[
        TestExit = { test_it = function()
            require("posix.unistd")._exit(0)
        end }]] })
    local result = kzrun({ dir, "test" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err,
        "kzrun: the tests did not come to their end\n")
end

function TestOutcome:test_status_of_an_application_that_does_not_start()
    local dir = project({ ["a_test.lua"] = PASSES }, {
        ["src/demo.lua"] = "return { init = function() return 7 end }",
    })
    lu.assertEquals(kzrun({ dir, "test" }).status, 7)
end

function TestOutcome:test_application_is_loaded_as_ever()
    local dir = project({ ["a_test.lua"] = [[
        local name, path = ...
        TestModule = { test_it = function()
            local lu = require("luaunit")
            lu.assertEquals(kzaAppModule.name, "demo")
            lu.assertStrContains(kzaAppModule.path, "/src/demo.lua")
            lu.assertIs(require("demo"), kzaAppModule)
            lu.assertEquals(dom:Get("app.name"), "demo")
            lu.assertTrue(dom:Get("app.mode.unittest"))
            lu.assertEquals(dom:Get("demo.key"), "value")
            lu.assertEquals(dom:ReadArchive("file"), "data")
            lu.assertEquals(arg[1], "--verbose")
        end }]] }, {
        ["src/demo.lua"] = [[
            local name, path = ...
            return { name = name, path = path }]],
        ["kz_agent.ini"] = "[domain]\ndemo.key=value\n",
        ["data/file"] = "data",
    })
    local result = run({ dir, "test", "--", "--verbose" })
    lu.assertStrContains(result.out, "TestModule.test_it ... Ok\n")
end

function TestOutcome:test_module_that_does_not_load()
    local dir = project({ ["a_test.lua"] = PASSES },
        { ["src/demo.lua"] = "x x" })
    local result = kzrun({ dir, "test" })
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, ("error loading module 'demo' from file "
        .. "'%s/src/demo.lua':\n\t"):format(dir))
end

TestPattern = {}

function TestPattern:setUp()
    self.dir = project({
        ["first_test.lua"] = [[
            TestA = { test_one = function() print("@A.one") end,
                test_two = function() print("@A.two") end }
            function test_alone() print("@alone") end]],
        ["second_test.lua"] =
            "TestB = { test_one = function() print('@B.one') end }",
    })
end

local function ran(dir, pattern)
    local names = {}
    for name in run({ dir, "test", pattern }).out:gmatch("@(%S+)") do
        names[#names + 1] = name
    end
    return table.concat(names, " ")
end

function TestPattern:test_of_the_script()
    lu.assertEquals(ran(self.dir, "^second"), "B.one")
    lu.assertEquals(ran(self.dir, "first_test%.lua"), "A.one A.two alone")
end

function TestPattern:test_of_class_and_test()
    lu.assertEquals(ran(self.dir, "A%.test_o"), "A.one")
    lu.assertEquals(ran(self.dir, "%.test_one$"), "A.one B.one")
    lu.assertEquals(ran(self.dir, "test_alone"), "alone")
end

function TestPattern:test_no_match_is_a_failure()
    local result = kzrun({ self.dir, "test", "third" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err, "kzrun: no test found\n")
end

function TestPattern:test_malformed_one_is_wrong_usage()
    local result = kzrun({ self.dir, "test", "[" })
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, "kzrun: '[': malformed pattern")
end

TestTimeout = {}

local LONG = {
    loop = "while true do end",
    caught = [[
        while true do
            pcall(function() while true do end end)
        end]],
    handled = [[
        while true do
            xpcall(function() while true do end end, debug.traceback)
        end]],
    coroutine = [[
        while true do
            pcall(coroutine.wrap(function() while true do end end))
        end]],
    ["older coroutine"] = [[
        while true do
            local ok = coroutine.resume(older)
            older = ok and older or new_coroutine()
        end]],
    sleep = "while true do pcall(dom.Sleep, dom, 600000) end",
    wait = "dom:Wait('never', math.huge)",
    callback = "(('x'):rep(100)):gsub('.', function() while true do end end)",
}

local OLDER = [[
function new_coroutine()
    return coroutine.create(function() while true do end end)
end
older = new_coroutine()
return {}
]]

function TestTimeout:test_every_way_to_take_long_is_cut()
    for name, code in pairs(LONG) do
        local dir = project({ ["a_test.lua"] = ([[
TestLong = { test_1_is_cut = function() %s end }
function TestLong:test_2_goes_on() end
]]):format(code) }, { ["src/demo.lua"] = OLDER })
        local result = kzrun({ dir, "test", "--timeout", "0.2" })
        lu.assertEquals(result.status, 1, name)
        lu.assertStrContains(result.out, "it takes longer than 0.2 s\n"
            .. "stack traceback:\n\t" .. dir .. "/tests/a_test.lua:")
        lu.assertStrContains(result.out,
            "Ran 2 tests in ")
        lu.assertStrContains(result.out, "1 success, 1 error", false, name)
    end
end

function TestTimeout:test_each_test_has_its_own_time()
    local dir = project({ ["a_test.lua"] = [[
        local function nap() dom:Sleep(300) end
        TestNap = { test_1 = nap, test_2 = nap, test_3 = nap }]] })
    run({ dir, "test", "--timeout", "0.8" })
end

function TestTimeout:test_loading_a_script_takes_time_too()
    local dir = project({ ["a_test.lua"] = "while true do end",
        ["b_test.lua"] = PASSES })
    local result = kzrun({ dir, "test", "--timeout", "0.2" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.out, "1 success, 1 error")
end

function TestTimeout:test_none()
    local dir = project({ ["a_test.lua"] = PASSES })
    run({ dir, "test", "--timeout", "0" })
end

function TestTimeout:test_what_is_no_time()
    for _, text in ipairs({ "-1", "x", "nan" }) do
        local result = kzrun({ "nowhere", "test", "--timeout=" .. text })
        lu.assertEquals(result.status, 2)
        lu.assertStrContains(result.err,
            ("kzrun: '%s' is no time in seconds; "):format(text))
    end
end

TestResults = {}

local MIXED = [[
local lu = require("luaunit")
print("while loading")
TestMixed = {}
function TestMixed:test_1_passes()
    print("of a test")
    io.stdout:write("of its stream\n")
    os.execute("echo of its child")
end
function TestMixed:test_2_fails() lu.assertEquals("<a>", "&\1\255") end
function TestMixed:test_3_breaks() error("two\nlines") end
function TestMixed:test_4_is_skipped() lu.skip("not #1") end
]]

function TestResults:test_tap_is_all_of_standard_output()
    local dir = project({ ["a_test.lua"] = MIXED })
    local result = kzrun({ dir, "test", "--tap" })
    lu.assertEquals(result.status, 1)
    lu.assertStrMatches(result.out, "1%.%.4\n"
        .. "ok 1 %- TestMixed%.test_1_passes\n"
        .. "not ok 2 %- TestMixed%.test_2_fails\n#   .*"
        .. "not ok 3 %- TestMixed%.test_3_breaks\n#   [^\n]*two\n#   lines\n.*"
        .. "ok 4 %- TestMixed%.test_4_is_skipped # SKIP not \\#1\n"
        .. "# Ran 3 tests in [^\n]*\n")
    for line in result.out:gmatch("[^\n]+") do
        lu.assertNotNil(line:find("^#") or line:find("^1%.%.%d")
            or line:find("^ok ") or line:find("^not ok "), line)
    end
    for _, text in ipairs({ "while loading\n", "of a test\n",
        "of its stream\n", "of its child\n" }) do
        lu.assertStrContains(result.err, text)
    end
end

function TestResults:test_junit()
    local dir = project({ ["a_test.lua"] = MIXED })
    local path = support.directory() .. "/results.xml"
    local result = kzrun({ dir, "test", "--junit", path })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.out, "Ran 3 tests in ")
    local read = support.run(([[python3 -c '
import sys, xml.etree.ElementTree as tree
suites = tree.parse(sys.argv[1]).getroot()
print(suites.get("tests"), suites.get("failures"), suites.get("errors"),
      suites.get("skipped"))
for case in suites.iter("testcase"):
    inner = [(part.tag, part.get("message").split(":")[-1]) for part in case]
    print(case.get("classname"), case.get("name"), *inner)
' %s]]):format(support.quote(path)))
    lu.assertEquals(read.err, "")
    lu.assertEquals(read.out, [[
4 1 1 1
TestMixed TestMixed.test_1_passes
TestMixed TestMixed.test_2_fails ('failure', ' "<a>"')
TestMixed TestMixed.test_3_breaks ('error', ' two\nlines')
TestMixed TestMixed.test_4_is_skipped ('skipped', 'not #1')
]])
end

function TestResults:test_both()
    local dir = project({ ["a_test.lua"] = PASSES })
    local path = support.directory() .. "/results.xml"
    lu.assertStrContains(
        run({ dir, "test", "--tap", "--junit", path }).out, "\nok 1 - ")
    lu.assertStrContains(support.read(path), 'tests="1"')
end

function TestResults:test_junit_that_cannot_be_written()
    local dir = project({ ["a_test.lua"] = PASSES })
    local result = kzrun({ dir, "test", "--junit", "/nowhere/results.xml" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err,
        "kzrun: /nowhere/results.xml: No such file or directory\n")
end
