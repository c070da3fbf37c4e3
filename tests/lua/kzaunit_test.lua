-- SPDX-License-Identifier: Apache-2.0
--
-- The unit-test driver, as an author sees it: each test writes scripts and
-- runs an agent on them.

local lu = require("luaunit")
local support = require("support")

-- An application for the agents that these tests start.
local APP = [[
return {
    init = function() print("init") end,
    main = function() print("main") end,
    shutdown = function() print("shutdown") end,
}
]]

local PASSING = [[
test_passes = function() end
]]

-- Runs scripts, {name = text}, with a specification relative to their
-- directory and LuaUnit's words.
local function run_scripts(scripts, specification, ...)
    local place = support.directory()
    support.write(place .. "/app.lua", APP)
    for name, text in pairs(scripts) do
        support.write(place .. "/" .. name, text)
    end
    local result = support.run_agent({
        "--appname", "app", "--lua_path", place .. "/?.lua",
        "--unittest", specification, "--", ...
    }, { cd = place })
    result.place = place
    return result
end

local function assert_status(result, status)
    lu.assertEquals(result.status, status, result.out .. result.err)
end

-- The order in which scripts that print "@name" were loaded.
local function loaded(result)
    local names = {}
    for name in result.out:gmatch("@(%S+)") do
        names[#names + 1] = name
    end
    return table.concat(names, " ")
end

local function announcing(...)
    local scripts = {}
    for _, name in ipairs({ ... }) do
        scripts[name] = ("print('@%s')\n%s"):format(name, PASSING)
    end
    return scripts
end

TestOutcome = {}

function TestOutcome.test_success_is_0_and_shutdown_follows()
    local result = run_scripts({ ["a.lua"] = PASSING }, "a.lua")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "init\n")
    lu.assertStrContains(result.out, "Ran 1 tests")
    lu.assertStrContains(result.out, "OK\nshutdown\n")
    lu.assertNotStrContains(result.out, "main\n")
    lu.assertEquals(result.err, "")
end

function TestOutcome.test_failures_and_errors_are_counted()
    local result = run_scripts({ ["a.lua"] = [[
        local lu = require("luaunit")
        TestA = {}
        function TestA:test1() lu.assertEquals(1, 2) end
        function TestA:test2() error("broken") end
        function TestA:test3() end
        function TestA:test4() lu.skip("not today") end
        function test_plain() lu.fail("no") end
    ]] }, "a.lua")
    assert_status(result, 3)
    lu.assertStrContains(result.out, "2 failures, 1 error, 1 skipped")
    lu.assertNotStrContains(result.out, "shutdown")
    lu.assertStrContains(result.out, "a.lua:4: broken")
end

function TestOutcome.test_256_failures_are_not_taken_for_none()
    local text = [[
        for i = 1, %d do
            _G["test" .. i] = function() error("no") end
        end
    ]]
    assert_status(run_scripts({ ["a.lua"] = text:format(256) }, "a.lua"), 255)
    assert_status(run_scripts({ ["a.lua"] = text:format(254) }, "a.lua"), 254)
end

function TestOutcome.test_no_script_is_a_failure()
    local result = run_scripts({}, "missing*.lua")
    assert_status(result, 1)
    lu.assertStrContains(
        result.out, "kzaunit: no script matches 'missing*.lua'\n")
end

function TestOutcome.test_an_item_without_a_script_is_a_failure()
    local result = run_scripts({ ["a.lua"] = PASSING }, "a*.lua;b*.lua")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "kzaunit: no script matches 'b*.lua'\n")
    lu.assertStrContains(result.out, "Ran 1 tests")
end

function TestOutcome.test_no_test_is_a_failure()
    local result = run_scripts({ ["a.lua"] = "local x = 1" }, "a.lua")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "kzaunit: no test found\n")
end

function TestOutcome.test_a_separator_alone_names_no_script()
    local result = run_scripts({}, ";?")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "kzaunit: no script matches '?'\n")
end

function TestOutcome.test_a_failing_init_keeps_tests_from_running()
    local place = support.directory()
    support.write(place .. "/app.lua", "return { init = function() "
        .. "return 9 end, shutdown = function() print('shutdown') end }")
    support.write(place .. "/a.lua", PASSING)
    local result = support.run_agent({ "--appname", "app", "--lua_path",
        place .. "/?.lua", "--unittest", place .. "/a.lua" })
    lu.assertEquals(result.status, 9)
    lu.assertEquals(result.out, "")
end

function TestOutcome.test_a_failing_shutdown_shows_in_the_status()
    local place = support.directory()
    support.write(place .. "/app.lua",
        "return { shutdown = function() return 8 end }")
    support.write(place .. "/a.lua", PASSING)
    local result = support.run_agent({ "--appname", "app", "--lua_path",
        place .. "/?.lua", "--unittest", place .. "/a.lua" })
    lu.assertEquals(result.status, 8)
    lu.assertStrContains(result.out, "OK\n")
end

-- Without a wildcard the agent itself looks whether there is such a file.
function TestOutcome.test_a_directory_alone_is_no_script()
    local result = run_scripts({ ["x/a.lua"] = PASSING }, "x")
    lu.assertEquals(result.err, "x: not found")
    lu.assertEquals(result.out, "init\nmain\nshutdown\n")
    assert_status(result, 0)
end

function TestOutcome.test_a_double_quote_is_a_syntax_error()
    local result = run_scripts({ ["a.lua"] = PASSING }, 'a*".lua')
    assert_status(result, 3)
    lu.assertStrContains(result.err, "tests.kzaunit:1:")
end

TestExpansion = {}

function TestExpansion.test_star_and_question_mark_are_sorted()
    local scripts = announcing("b.lua", "a.lua", "B.lua", "a1.lua", ".h.lua")
    lu.assertEquals(
        loaded(run_scripts(scripts, "*.lua")), "B.lua a.lua a1.lua b.lua")
    lu.assertEquals(loaded(run_scripts(scripts, "?.lua")), "B.lua a.lua b.lua")
    lu.assertEquals(loaded(run_scripts(scripts, "a*")), "a.lua a1.lua")
    lu.assertEquals(loaded(run_scripts(scripts, ".*.lua")), ".h.lua")
end

function TestExpansion.test_a_question_mark_is_one_character()
    local scripts = announcing("ä.lua", "ab.lua")
    lu.assertEquals(loaded(run_scripts(scripts, "?.lua")), "ä.lua")
end

function TestExpansion.test_other_characters_stand_for_themselves()
    local scripts = announcing("a+b-[1].lua", "aab1.lua", "%d.lua", "1.lua")
    lu.assertEquals(
        loaded(run_scripts(scripts, "a+b-[1]*.lua")), "a+b-[1].lua")
    lu.assertEquals(loaded(run_scripts(scripts, "%d*.lua")), "%d.lua")
end

function TestExpansion.test_several_items_run_in_the_order_written()
    local scripts = announcing("a.lua", "b.lua", "c.lua")
    lu.assertEquals(loaded(run_scripts(scripts, "c.lua;*.lua")),
        "c.lua a.lua b.lua")
end

function TestExpansion.test_wildcards_in_directories()
    local scripts = announcing("x/1.lua", "y/1.lua", "y/2.lua", "z/a/1.lua")
    lu.assertEquals(
        loaded(run_scripts(scripts, "?/1.lua")), "x/1.lua y/1.lua")
    lu.assertEquals(
        loaded(run_scripts(scripts, "./z/*/../a/1.lua")), "z/a/1.lua")
end

function TestExpansion.test_a_directory_stands_for_its_scripts()
    local scripts = announcing("x/b.lua", "x/a.lua", "x/sub/c.lua",
        "x/.hidden/d.lua", "x/.e.lua")
    scripts["x/data.txt"] = "not Lua"
    lu.assertEquals(
        loaded(run_scripts(scripts, "x*")), "x/a.lua x/b.lua x/sub/c.lua")
end

function TestExpansion.test_an_absolute_path()
    local place = support.directory()
    support.write(place .. "/one.lua", "print('@one')\n" .. PASSING)
    local result = run_scripts({}, place .. "/*.lua")
    assert_status(result, 0)
    lu.assertEquals(loaded(result), "one")
end

TestLoading = {}

function TestLoading.test_a_script_that_fails_to_load_is_an_error()
    local result = run_scripts({
        ["a.lua"] = "local x = = 1",
        ["b.lua"] = PASSING,
        ["c.lua"] = "error('gone wrong')",
        ["d.lua"] = "error({})",
        ["e.lua"] = "error()",
    }, "*.lua")
    assert_status(result, 4)
    lu.assertStrContains(result.out, "Ran 5 tests")
    lu.assertStrContains(result.out, "4 errors")
    lu.assertStrContains(result.out,
        "kzaunit: cannot load a.lua: a.lua:1: unexpected symbol near '='")
    lu.assertStrContains(result.out,
        "kzaunit: cannot load c.lua: c.lua:1: gone wrong\nstack traceback:")
    lu.assertStrContains(result.out, "kzaunit: cannot load e.lua: nil")
end

function TestLoading.test_no_filter_hides_a_script_that_fails_to_load()
    local scripts = {
        ["a.lua"] = "local x = = 1",
        ["b.lua"] = PASSING .. "test_other = function() end",
    }
    local filters = {
        { "1 success", "-p", "passes" },
        { "1 success", "-x", "other" },
        { "1 success", "test_passes" },
        { "2 successes", "-x", "load" },
    }
    for _, filter in ipairs(filters) do
        local result = run_scripts(
            scripts, "*.lua", table.unpack(filter, 2))
        assert_status(result, 1)
        lu.assertStrContains(result.out, "1 error")
        lu.assertStrContains(result.out, filter[1])
    end
end

function TestLoading.test_a_script_made_for_plain_lua_runs()
    local result = run_scripts({
        ["a.lua"] = [[
            local lu = require("luaunit")
            TestA = { test1 = function() end }
            os.exit(lu.LuaUnit.run())
        ]],
        ["b.lua"] = [[
            local lu = require("luaunit")
            TestB = { test1 = function() end }
            local runner = lu.LuaUnit.new()
            runner:setOutputType("tap")
            os.exit(runner:runSuite())
        ]],
    }, "*.lua")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "Ran 2 tests")
end

function TestLoading.test_exit_while_loading_is_an_error()
    local result = run_scripts({ ["a.lua"] = "os.exit(0)" }, "a.lua")
    assert_status(result, 1)
    lu.assertStrContains(
        result.out, "kzaunit: cannot load a.lua: os.exit(0) was called\n")
end

function TestLoading.test_exit_in_a_test_is_an_error()
    local result = run_scripts({
        ["a.lua"] = "test1 = function() os.exit(0) end\n" .. PASSING,
        ["b.lua"] = [[
            local lu = require("luaunit")
            test2 = function() lu.unregisterCurrentSuite() os.exit(0) end
        ]],
    }, "*.lua")
    assert_status(result, 2)
    lu.assertStrContains(result.out, "Ran 3 tests")
end

function TestLoading.test_equal_names_in_two_scripts_both_run()
    local result = run_scripts({
        ["a.lua"] = "TestX = { test1 = function() print('from a') end }",
        ["b.lua"] = "TestX = { test1 = function() print('from b') end }",
        ["b&.lua"] = "TestX = { test1 = function() print('from b&') end }",
    }, "*.lua", "-o", "tap")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "from a\n")
    lu.assertStrContains(result.out, "from b\n")
    lu.assertStrContains(result.out, "from b&\n")
    lu.assertStrContains(result.out, "\tTestX.test1\n")
    lu.assertStrContains(result.out, "\tTestX@b.test1\n")
    lu.assertStrContains(result.out, "\tTestX@b_.test1\n")
end

function TestLoading.test_globals_are_shared_as_in_plain_lua()
    local result = run_scripts({
        ["a.lua"] = "helper = function() return 7 end " .. PASSING,
        ["b.lua"] = "test_b = function() assert(helper() == 7) end",
    }, "*.lua")
    assert_status(result, 0)
end

TestSetUp = {}

function TestSetUp.test_of_suite_and_class_run()
    local result = run_scripts({
        ["a.lua"] = [[
            function setupSuite() print("setup a") end
            function teardownSuite() print("teardown a") end
            TestA = {
                setupClass = function() print("class a") end,
                setUp = function() print("each a") end,
                test1 = function() end,
            }
        ]],
        ["b.lua"] = "function setupSuite() print('setup b') end " .. PASSING,
    }, "*.lua")
    assert_status(result, 0)
    for _, line in ipairs({ "setup a", "setup b", "class a", "each a",
        "teardown a" }) do
        lu.assertStrContains(result.out, line .. "\n")
    end
end

function TestSetUp.test_a_failure_outside_a_test_counts()
    local result = run_scripts({ ["a.lua"] = [[
        function setupSuite() error("no suite") end
        TestA = {
            setupClass = function() error("no class") end,
            test1 = function() end,
        }
    ]] }, "a.lua")
    assert_status(result, 2)
    lu.assertStrContains(result.out, "a.lua:1: no suite")
    lu.assertStrContains(result.out, "a.lua:3: no class")
    lu.assertStrContains(result.out, "Ran 1 tests")
end

TestOptions = {}

local TWO = { ["a.lua"] = [[
    TestA = {}
    function TestA:test_one() end
    function TestA:test_two() error("2 < 3 & 'so on'") end
    function test_three() end
]] }

function TestOptions.test_pattern()
    local result = run_scripts(TWO, "a.lua", "--pattern", "one")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "Ran 1 tests")
    lu.assertStrContains(result.out, "2 non%-selected", true)
end

function TestOptions.test_pattern_that_selects_nothing_is_a_failure()
    local result = run_scripts(TWO, "a.lua", "-p", "nothing")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "kzaunit: no test found\n")
end

function TestOptions.test_names()
    local result = run_scripts(TWO, "a.lua", "TestA.test_one", "test_three")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "Ran 2 tests")

    assert_status(run_scripts(TWO, "a.lua", "TestA"), 1)

    result = run_scripts(TWO, "a.lua", "test_three", "TestA.test_none")
    assert_status(result, 1)
    lu.assertStrContains(
        result.out, "kzaunit: no test is named 'TestA.test_none'\n")
end

function TestOptions.test_verbose()
    local result = run_scripts(TWO, "a.lua", "--verbose")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "TestA.test_one ... Ok\n")
    lu.assertStrContains(result.out, "TestA.test_two ... ERROR\n")
end

function TestOptions.test_tap()
    local result = run_scripts(TWO, "a.lua", "-o", "TAP")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "1..3\n")
    lu.assertStrContains(result.out, "ok     1\tTestA.test_one\n")
    lu.assertStrContains(result.out, "not ok 2\tTestA.test_two\n")
    lu.assertStrContains(result.out, "ok     3\ttest_three\n")
end

function TestOptions.test_junit()
    local scripts = { ["b&<.lua"] = "syntax error" }
    scripts["a.lua"] = TWO["a.lua"]
    local result = run_scripts(scripts, "*.lua", "-o", "junit", "-n", "r.xml")
    assert_status(result, 2)
    local xml = support.read(result.place .. "/r.xml")
    lu.assertStrContains(xml, 'tests="4"')
    lu.assertStrContains(xml, 'errors="2" failures="0" skipped="0"')
    lu.assertStrContains(xml, 'name="TestA.test_one"')
    lu.assertStrContains(xml, 'name="load b__.lua"')
    lu.assertStrContains(xml, "2 &lt; 3 &amp; &apos;so on&apos;")
end

function TestOptions.test_junit_without_a_file_is_a_failure()
    local result = run_scripts(TWO, "a.lua", "-o", "junit")
    assert_status(result, 1)
    lu.assertStrContains(result.out,
        "With junit output, a filename must be supplied")
end

function TestOptions.test_junit_into_an_unwritable_place_is_a_failure()
    local result = run_scripts(TWO, "a.lua", "-o", "junit", "-n", "no/r.xml")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "Could not open file for writing: no/r")
end

function TestOptions.test_help_runs_nothing_and_succeeds()
    local result = run_scripts(TWO, "a.lua", "--help")
    assert_status(result, 0)
    lu.assertStrContains(result.out, "--pattern PATTERN")
    lu.assertNotStrContains(result.out, "Ran ")
    assert_status(run_scripts(TWO, "a.lua", "-p", "--help"), 1)
end

function TestOptions.test_an_unknown_option_is_a_failure()
    local result = run_scripts(TWO, "a.lua", "--no-such-option")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "Unknown option: --no-such-option")
end

function TestOptions.test_stop_at_the_first_error()
    local result = run_scripts(TWO, "a.lua", "--error")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "Ran 2 tests")
    lu.assertStrContains(result.out, "LuaUnit ABORTED")
end

-- What LuaUnit 3.5 changed for its callers, on top of the LuaUnit that ships:
-- functions that became methods, filtering by name, failures of whole suites.
local LUAUNIT_3_5 = [[
local load_shipped, place = package.searchers[3]("luaunit")
local lu = load_shipped("luaunit", place)
local class = lu.LuaUnit
local own_source = debug.getinfo(load_shipped, "S").source

local function make_method(name)
    local plain = class[name]
    class[name] = function(self, ...)
        if type(self) == "table" and self.protectedCall then
            return plain(...)
        end
        if debug.getinfo(2, "S").source ~= own_source then
            error(name .. " is a method", 2)
        end
        return plain(self, ...)
    end
end
make_method("isMethodTestName")
make_method("isTestName")
make_method("collectTests")
make_method("expandClasses")

function class:applyTestPrefixSuffixFilter(tests)
    local kept = {}
    for _, test in ipairs(tests) do
        if self:isTestName(test[1]) then
            kept[#kept + 1] = test
        end
    end
    return kept
end

local run_all = class.internalRunSuiteByInstances
function class:internalRunSuiteByInstances(tests)
    return run_all(self, self:applyTestPrefixSuffixFilter(tests))
end

local update = class.updateStatus
function class:updateStatus(kind, outcome)
    if type(kind) == "table" then
        return update(self, kind) -- LuaUnit's own call
    end
    assert(kind == "suite")
    if outcome.status ~= lu.NodeStatus.SUCCESS then
        local node = lu.NodeStatus.new(0, "setupSuite", "")
        node:error(outcome.msg, outcome.trace)
        table.insert(self.result.errorTests, node)
    end
end

return lu
]]

TestLuaUnit35 = {}

local function run_with_3_5(text, ...)
    return run_scripts(
        { ["luaunit.lua"] = LUAUNIT_3_5, ["a.lua"] = text }, "a.lua", ...)
end

function TestLuaUnit35.test_functions_and_classes_run()
    local result = run_with_3_5([[
        TestA = { test_passes = function() end, test_fails = error }
        function test_plain() end
        function other() error("no test") end
    ]])
    assert_status(result, 1)
    lu.assertStrContains(result.out, "Ran 3 tests")
    assert_status(run_with_3_5(PASSING), 0)
end

function TestLuaUnit35.test_names_and_patterns_select()
    assert_status(run_with_3_5(TWO["a.lua"], "TestA.test_one"), 0)
    assert_status(run_with_3_5(TWO["a.lua"], "--pattern", "one"), 0)
end

function TestLuaUnit35.test_a_script_that_fails_to_load_is_an_error()
    local result = run_with_3_5("error('no')")
    assert_status(result, 1)
    lu.assertStrContains(result.out, "Ran 1 tests")
end

function TestLuaUnit35.test_a_failure_around_the_suite_counts_once()
    for _, name in ipairs({ "setupSuite", "teardownSuite" }) do
        local result = run_with_3_5(PASSING ..
            ("function %s() error('around') end"):format(name))
        assert_status(result, 1)
        lu.assertStrContains(result.out, "around")
    end
end
