-- SPDX-License-Identifier: Apache-2.0
--
-- Runs Lua test scripts under LuaUnit.
--
-- The scripts run one after the other in one Lua state, as plain Lua scripts
-- do; a global table or function whose name begins with "test" (in upper or
-- lower case) is a test. A script may end with
-- `os.exit(lu.LuaUnit.run())`, so that plain Lua can run it too.
--
-- The words after "--" of the agent's command line are LuaUnit's own.

local lu = require("luaunit")

local unit = {}

-- Differences of LuaUnit 3.5: options can change the names of tests, for which
-- some functions became methods; it counts failures outside any test by itself;
-- and it must be told which test a failure belongs to.
local IS_3_5 = lu.LuaUnit.applyTestPrefixSuffixFilter ~= nil

-- Calls a function of LuaUnit that is a method from 3.5 on.
local function ask(runner, name, ...)
    if IS_3_5 then
        return runner[name](runner, ...)
    end
    return lu.LuaUnit[name](...)
end

-- Loading -------------------------------------------------------------------

-- The metatable of the value that is thrown instead of a call of os.exit.
local ExitRequest = {}
ExitRequest.__index = ExitRequest
ExitRequest.__tostring = function(self)
    return ("os.exit(%s) was called"):format(tostring(self.status))
end

-- Calls `work` with an os.exit that cannot end the process: a test that calls
-- os.exit(0) would otherwise count as a successful run of all tests.
local function without_exit(work)
    local exit = os.exit
    os.exit = function(status, ...)
        if #lu.LuaUnit.instances > 0 then
            return exit(status, ...) -- by LuaUnit, which has said the reason
        end
        error(setmetatable({ status = status }, ExitRequest), 0)
    end
    local ok, result = xpcall(work, function(reason)
        if getmetatable(reason) == ExitRequest then
            return reason
        end
        return debug.traceback(tostring(reason), 2)
    end)
    os.exit = exit
    return ok, result
end

-- Calls `work` with a LuaUnit that runs no test and only notes the call: with
-- it a script says that it has come to its end. The tests of all scripts run
-- together, later.
local function with_quiet_luaunit(work)
    local asked = false
    local function note()
        asked = true
        return 0
    end
    local class = lu.LuaUnit
    local kept = { lu.run, lu.Run, class.run, class.runSuite }
    lu.run, lu.Run, class.run, class.runSuite = note, note, note, note
    local ok, result = without_exit(work)
    lu.run, lu.Run, class.run, class.runSuite = table.unpack(kept)

    local at_its_end = asked and getmetatable(result) == ExitRequest
    return ok or at_its_end, result
end

local function is_test_name(runner, name)
    return type(name) == "string" and ask(runner, "isTestName", name)
end

local function test_globals(runner)
    local found = {}
    for name, value in pairs(_G) do
        local kind = type(value)
        if is_test_name(runner, name)
            and (kind == "table" or kind == "function") then
            found[name] = value
        end
    end
    return found
end

-- Runs a script and returns the tests that it defined: {name, value}.
local function load_tests(runner, path)
    local before = test_globals(runner)
    local chunk, message = loadfile(path)
    if not chunk then
        return nil, message
    end
    local ok, reason = with_quiet_luaunit(runner.limited(chunk))
    if not ok then
        return nil, tostring(reason)
    end

    local tests = {}
    for name, value in pairs(test_globals(runner)) do
        if before[name] ~= value then
            tests[#tests + 1] = { name, value }
        end
    end
    table.sort(tests, function(a, b) return a[1] < b[1] end)
    return tests
end

-- A name that no earlier script has taken. LuaUnit takes a dot for the end of
-- the class's name, and writes names into XML as they are.
local function unique_name(taken, name, path)
    local unique = name
    if taken[unique] then
        local script = path:match("([^/]*)$"):gsub("%.lua$", "")
        unique = name .. "@" .. script:gsub("[%.<>&\"']", "_")
    end
    local plain, count = unique, 1
    while taken[unique] do
        count = count + 1
        unique = plain .. "#" .. count
    end
    taken[unique] = true
    return unique
end

-- A failing test that stands for a script which could not be loaded, so that
-- the failure shows in every form of output.
local function load_failure(path, message)
    local name = "load " .. path:gsub("[<>&\"]", "_")
    return { name, function() error(message, 0) end, must_run = true }
end

local function take_global(name)
    local value = rawget(_G, name)
    rawset(_G, name, nil)
    return value
end

-- Loads all scripts; one that fails does not keep the others from running.
local function load_all(runner, scripts)
    local suite = { setups = {}, teardowns = {} }
    local taken = {}
    for _, path in ipairs(scripts) do
        local tests, message = load_tests(runner, path)
        if not tests then
            runner.say("cannot load %s: %s", path, message)
            suite[#suite + 1] = load_failure(path, message)
        end
        for _, test in ipairs(tests or {}) do
            local name = unique_name(taken, test[1], path)
            suite[#suite + 1] =
                { name, test[2], plain_name = test[1], path = path }
        end
        table.insert(suite.setups, take_global("setupSuite"))
        table.insert(suite.teardowns, take_global("teardownSuite"))
    end
    return suite
end

-- Running -------------------------------------------------------------------

-- The tests that a name given after "--" selects.
local function add_named(selected, suite, name)
    local class, method = lu.LuaUnit.splitClassMethod(name)
    local found = false
    for _, test in ipairs(suite) do
        local own = test[1] == (class or name)
        local plain = test.plain_name == (class or name)
        if (own or plain) and not class then
            selected[#selected + 1], found = test, true
        elseif (own or plain) and type(test[2]) == "table"
            and type(test[2][method]) == "function" then
            selected[#selected + 1] = { test[1] .. "." .. method, test[2] }
            found = true
        end
    end
    return found
end

-- Keeps the tests whose script's name, or whose own name with that of the
-- class, fits a pattern.
local function matching(runner, suite, pattern)
    local kept = {}
    for _, test in ipairs(suite) do
        local script = test.path and test.path:match("[^/]*$")
        if test.must_run or script:find(pattern) then
            kept[#kept + 1] = test
        else
            for _, one in ipairs(ask(runner, "expandClasses", { test })) do
                if one[1]:find(pattern) then
                    kept[#kept + 1] = one
                end
            end
        end
    end
    return kept
end

-- The tests to run and the number of names that select none.
local function select_tests(runner, suite, names)
    if not names then
        return suite, 0
    end
    local selected, failures = {}, 0
    for _, test in ipairs(suite) do
        if test.must_run then
            selected[#selected + 1] = test
        end
    end
    for _, name in ipairs(names) do
        if not add_named(selected, suite, name) then
            runner.say("no test is named '%s'", name)
            failures = failures + 1
        end
    end
    return selected, failures
end

local function escape_pattern(text)
    return (text:gsub("%p", "%%%0"))
end

-- Adds a pattern to the filter that includes scripts which failed to load.
-- Later patterns win, so no filter hides such a script.
local function keep_load_failures(runner, tests)
    local filter = runner.patternIncludeFilter
    if not filter then
        return
    end
    local includes = false
    for _, pattern in ipairs(filter) do
        includes = includes or pattern:sub(1, 1) ~= "!"
    end
    if not includes then
        -- An include pattern turns the default into "leave out".
        table.insert(filter, 1, ".")
    end
    for _, test in ipairs(tests) do
        if test.must_run then
            filter[#filter + 1] = "^" .. escape_pattern(test[1]) .. "$"
        end
    end
end

-- Makes a runner count failures outside any test (in setupSuite, setupClass and
-- their counterparts), on which LuaUnit 3.4 itself gives up.
local function count_failures_outside(runner)
    function runner:updateStatus(outcome)
        local status = outcome.status
        if self.result.currentNode or status == lu.NodeStatus.SUCCESS then
            return lu.LuaUnit.updateStatus(self, outcome)
        end
        if status ~= lu.NodeStatus.SKIP then
            self.failures_outside = self.failures_outside + 1
            self.say("%s\n%s", tostring(outcome.msg), outcome.trace or "")
        end
    end
end

-- The traceback of a call under a limit, without what is only there for the
-- limit. LuaUnit would name the function, did it call it itself.
local function without_limit(trace, name)
    trace = trace:gsub("\n[^\n]*'limit'.*", "")
    return (trace:gsub("in function <[^\n]*>$", function()
        return name and ("in function '%s'"):format(name)
    end))
end

-- Makes a runner end each call of a test, and of what is around it, when its
-- time is up.
local function limit_calls(runner, seconds)
    local probe = require("kza.probe")
    function runner.limited(call)
        return function(...) return probe.limit(seconds, call, ...) end
    end
    function runner:protectedCall(instance, call, name)
        local outcome = lu.LuaUnit.protectedCall(
            self, instance, self.limited(call), name)
        if outcome.trace then
            outcome.trace = without_limit(outcome.trace, name)
        end
        return outcome
    end
end

-- Several outputs as one.
local function join_outputs(outputs)
    local Joined = {}
    function Joined.new(runner)
        local parts = {}
        for i, output in ipairs(outputs) do
            parts[i] = output.new(runner)
        end
        return setmetatable({}, { __index = function(_, name)
            return function(_, ...)
                for _, part in ipairs(parts) do
                    part[name](part, ...)
                end
            end
        end })
    end
    return Joined
end

local function new_runner(options)
    local runner = lu.LuaUnit.new()
    runner.failures_outside = 0
    runner.say = options.say
    if not IS_3_5 then
        count_failures_outside(runner)
    end
    function runner.limited(call)
        return call
    end
    if options.limit then
        limit_calls(runner, options.limit)
    end
    if options.outputs then
        runner.outputType = join_outputs(options.outputs)
    end
    -- The tests have been selected above, by the same rules.
    function runner.applyTestPrefixSuffixFilter(_, tests)
        return tests
    end
    return runner
end

-- Makes a runner call the functions around all tests of each script.
local function add_suite_functions(runner, suite)
    local function call_all(functions, name)
        for _, call in ipairs(functions) do
            local outcome = runner:protectedCall(nil, call, name)
            if IS_3_5 then
                runner:updateStatus("suite", outcome)
            else
                runner:updateStatus(outcome)
            end
        end
    end
    function runner.setupSuite()
        call_all(suite.setups, "setupSuite")
    end
    function runner.teardownSuite()
        call_all(suite.teardowns, "teardownSuite")
    end
end

-- Gives the runner the options from after "--". Returns the names of tests
-- among them, and whether one of them only prints a text (--help, --version),
-- after which LuaUnit calls os.exit.
local function read_options(runner)
    local class = lu.LuaUnit
    local kept = { class.help, class.version }
    local only_asked = false
    local function answer(show)
        return function()
            only_asked = true
            without_exit(show)
        end
    end
    class.help, class.version = answer(class.help), answer(class.version)
    local ok, names = without_exit(function()
        return runner:initFromArguments(table.unpack(arg))
    end)
    class.help, class.version = table.unpack(kept)
    if not ok then
        error(names, 0)
    end
    return names, only_asked
end

-- Runs the tests of a suite that the options select; returns the number of
-- failures and errors.
local function run_suite(runner, suite, names)
    local tests, failures = select_tests(runner, suite, names)
    keep_load_failures(runner, tests)
    add_suite_functions(runner, suite)

    local expanded = ask(runner, "expandClasses", tests)
    local included = lu.LuaUnit.applyPatternFilter(
        runner.patternIncludeFilter, expanded)
    if #included == 0 then
        runner.say("no test found")
        return failures + 1
    end

    runner:registerSuite()
    local ok, reason = without_exit(function()
        runner:internalRunSuiteByInstances(tests)
    end)
    runner:unregisterSuite()
    -- After a failure under --error or --failure, LuaUnit calls os.exit.
    if not ok and not runner.result.aborted then
        error(reason, 0)
    end
    return failures + runner.failures_outside + runner.result.notSuccessCount
end

-- Loads and runs scripts with the options given after "--". Options come first,
-- because they may change the names of tests.
local function run_scripts(scripts, options)
    local runner = new_runner(options)
    local names, only_asked = read_options(runner)
    if only_asked then
        return 0
    end
    local suite = load_all(runner, scripts)
    if options.pattern then
        local kept = matching(runner, suite, options.pattern)
        kept.setups, kept.teardowns = suite.setups, suite.teardowns
        suite = kept
    end
    return run_suite(runner, suite, names)
end

---@class kza.unit.Options
---@field say fun(format: string, ...)  Told what is wrong outside of LuaUnit.
---@field pattern? string   Only tests of scripts whose names fit, or that do so
---                         themselves as "Class.test".
---@field limit? number     Seconds that each call of a test may take.
---@field outputs? table[]  Classes like LuaUnit's, in place of its own.

--- Runs scripts and answers with the number of failures.
---@param scripts string[]
---@param options kza.unit.Options
---@return integer failures
function unit.run(scripts, options)
    local ok, result = without_exit(function()
        return run_scripts(scripts, options)
    end)
    if ok then
        return result
    end
    -- For a wrong option, LuaUnit itself has printed a message.
    if getmetatable(result) ~= ExitRequest then
        options.say("%s", result)
    end
    return 1
end

return unit
