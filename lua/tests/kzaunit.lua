-- SPDX-License-Identifier: Apache-2.0
--
-- The unit-test driver: runs Lua test scripts under LuaUnit.
--
--     kz_agent --appname mytool --unittest 'tests/*.lua' -- --verbose
--
-- The agent calls this module with the value of --unittest: paths separated by
-- ";", in which "*" and "?" are expanded here, by this module, in sorted order.
-- A directory stands for the Lua files in it and below it.
--
-- The scripts run one after the other in one Lua state, as plain Lua scripts
-- do; a global table or function whose name begins with "test" (in upper or
-- lower case) is a test. A script may end with
-- `os.exit(lu.LuaUnit.run())`, so that plain Lua can run it too.
--
-- The words after "--" are LuaUnit's own: --pattern, --verbose, --output TAP,
-- --output junit --name FILE, names of tests, and so on.

local files = require("kza.files")
local lu = require("luaunit")

-- An exit status has eight bits: 256 failures must not look like none.
local MAX_STATUS = 255

-- LuaUnit 3.5 lets options change what counts as a test. It made methods of the
-- functions that ask for that, counts failures outside any test by itself, and
-- is told where a failure belongs.
local IS_3_5 = lu.LuaUnit.applyTestPrefixSuffixFilter ~= nil

local function say(text, ...)
    print("kzaunit: " .. text:format(...))
end

-- Calls one of the functions that LuaUnit 3.5 made methods.
local function ask(runner, name, ...)
    if IS_3_5 then
        return runner[name](runner, ...)
    end
    return lu.LuaUnit[name](...)
end

-- Expanding the pattern -----------------------------------------------------

local function add_script(scripts, path)
    if not scripts[path] then
        scripts[path] = true
        scripts[#scripts + 1] = path
    end
end

local function add_directory(scripts, directory)
    local entries, message = files.tree(directory)
    if not entries then
        say("%s", message)
        return false
    end
    for _, entry in ipairs(entries) do
        local hidden = ("/" .. entry.name):find("/.", 1, true)
        if entry.info.type ~= "directory" and not hidden
            and entry.name:find("%.lua$") then
            add_script(scripts, entry.path)
        end
    end
    return true
end

-- Adds what one item of the pattern names; false when there is nothing.
local function add_item(scripts, item)
    local found = files.glob(item)
    if #found == 0 then
        say("no script matches '%s'", item)
        return false
    end
    local whole = true
    for _, path in ipairs(found) do
        if files.is_directory(path) then
            whole = add_directory(scripts, path) and whole
        else
            add_script(scripts, path)
        end
    end
    return whole
end

-- The scripts that a pattern names, each once, and how many of its items
-- name nothing.
local function expand(pattern)
    local scripts, failures = {}, 0
    for item in pattern:gmatch("[^;]+") do
        if not add_item(scripts, item) then
            failures = failures + 1
        end
    end
    return scripts, failures
end

-- Loading -------------------------------------------------------------------

-- What `error` throws in place of os.exit, to unwind up to here.
local ExitRequest = {}
ExitRequest.__index = ExitRequest
ExitRequest.__tostring = function(self)
    return ("os.exit(%s) was called"):format(tostring(self.status))
end

-- Calls `work` with an os.exit that cannot end the process: a test that called
-- os.exit(0) would pass for a successful run of all.
local function without_exit(work)
    local exit = os.exit
    os.exit = function(status, ...)
        if #lu.LuaUnit.instances > 0 then
            return exit(status, ...) -- LuaUnit's own, which explains itself
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

-- While a script loads, its own call of LuaUnit only notes that it came to its
-- end; the tests of all scripts run together, later.
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

-- Runs a script and answers with the tests that it defined: {name, value}.
local function load_tests(runner, path)
    local before = test_globals(runner)
    local chunk, message = loadfile(path)
    if not chunk then
        return nil, message
    end
    local ok, reason = with_quiet_luaunit(chunk)
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

-- A test that stands for a script which could not be loaded, so that it shows
-- in whatever form the results are asked for.
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
            say("cannot load %s: %s", path, message)
            suite[#suite + 1] = load_failure(path, message)
        end
        for _, test in ipairs(tests or {}) do
            local name = unique_name(taken, test[1], path)
            suite[#suite + 1] = { name, test[2], plain_name = test[1] }
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

-- The tests to run and the number of names that select none.
local function select_tests(suite, names)
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
            say("no test is named '%s'", name)
            failures = failures + 1
        end
    end
    return selected, failures
end

local function escape_pattern(text)
    return (text:gsub("%p", "%%%0"))
end

-- A filter never hides a script that failed to load: later patterns win.
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
            say("%s\n%s", tostring(outcome.msg), outcome.trace or "")
        end
    end
end

local function new_runner()
    local runner = lu.LuaUnit.new()
    runner.failures_outside = 0
    if not IS_3_5 then
        count_failures_outside(runner)
    end
    -- What is a test has been decided here, by the same rules.
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

-- Gives the runner the options from after "--". Answers with the names of tests
-- among them, and whether one of them only asks for a text (--help, --version),
-- which LuaUnit prints and then wants to end the process.
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

-- Runs the tests of a suite that the options select; answers with the number of
-- failures and errors.
local function run_suite(runner, suite, names)
    local tests, failures = select_tests(suite, names)
    keep_load_failures(runner, tests)
    add_suite_functions(runner, suite)

    local expanded = ask(runner, "expandClasses", tests)
    local included = lu.LuaUnit.applyPatternFilter(
        runner.patternIncludeFilter, expanded)
    if #included == 0 then
        say("no test found")
        return failures + 1
    end

    runner:registerSuite()
    local ok, reason = without_exit(function()
        runner:internalRunSuiteByInstances(tests)
    end)
    runner:unregisterSuite()
    -- After --error or --failure LuaUnit asks for the end of the process.
    if not ok and not runner.result.aborted then
        error(reason, 0)
    end
    return failures + runner.failures_outside + runner.result.notSuccessCount
end

-- Loads and runs scripts with the options given after "--", which may say what
-- a test is.
local function run_scripts(scripts)
    local runner = new_runner()
    local names, only_asked = read_options(runner)
    if only_asked then
        return 0
    end
    return run_suite(runner, load_all(runner, scripts), names)
end

local function run(pattern)
    local scripts, failures = expand(pattern)
    if #scripts == 0 then
        if failures == 0 then
            say("no script matches '%s'", pattern)
        end
        return math.max(failures, 1)
    end

    local ok, result = without_exit(function() return run_scripts(scripts) end)
    if ok then
        return failures + result
    end
    -- LuaUnit has explained what is wrong with an option itself.
    if getmetatable(result) ~= ExitRequest then
        say("%s", result)
    end
    return failures + 1
end

return function(pattern)
    return math.min(run(pattern), MAX_STATUS)
end
