-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR test --coverage.

local lu = require("luaunit")
local host = require("kza.host")
local projects = require("projects")
local support = require("support")

local kzrun, run = projects.kzrun, projects.run
local quote = support.quote

local DEMO = [[
local part = require("part")
local demo = {}

function demo.grade(points)
    if points > 10 then
        return "good"
    elseif points > 5 then
        return "fair"
    else
        return "poor"
    end
end

local function never()
    for i = 1, 2 do
        print(i)
    end
end

demo.main = function() never() end

function demo.all()
    local grades = {
        demo.grade(part.points()),
        demo.grade(7),
    }
    return grades
end

return demo
]]

local PART = [[
return { points = function() return 20 end }
]]

local UNUSED = [[
local unused = {}
function unused.one() return 1 end
return unused
]]

local CALLS = "function test_all() kzaAppModule.all() kzaAppModule.all() end"

local function project(test)
    return projects.new({
        ["src/demo.lua"] = DEMO, ["src/part/init.lua"] = PART,
        ["src/deep/unused.lua"] = UNUSED, ["src/.hidden.lua"] = "x x",
        ["tests/a_test.lua"] = test or CALLS,
    })
end

-- What lcov.info says of a file: {hits by line}, {hits by function}.
local function records(dir, name)
    local text = support.read(dir .. "/lcov.info")
    local record = text:match("SF:" .. dir:gsub("%p", "%%%0") .. "/"
        .. name:gsub("%p", "%%%0") .. "\n(.-)end_of_record\n")
    lu.assertNotNil(record, text)
    local lines, functions = {}, {}
    for line, count in record:gmatch("DA:(%d+),(%d+)\n") do
        lines[tonumber(line)] = tonumber(count)
    end
    for count, function_name in record:gmatch("FNDA:(%d+),([^\n]+)\n") do
        functions[function_name] = tonumber(count)
    end
    return lines, functions
end

-- The lines with a count that fits, as a text.
local function lines_with(lines, fits)
    local found = {}
    for line, count in pairs(lines) do
        if fits(count) then
            found[#found + 1] = line
        end
    end
    table.sort(found)
    return table.concat(found, " ")
end

TestCoverage = {}

function TestCoverage:test_lines_and_functions()
    local dir = project()
    run({ dir, "test", "--coverage" })
    local lines, functions = records(dir, "src/demo.lua")
    lu.assertEquals(lines_with(lines, function(count) return count == 0 end),
        "10 15 16")
    lu.assertEquals(lines_with(lines, function(count) return count > 0 end),
        "1 2 4 5 6 7 8 12 18 20 22 23 24 25 26 27 28 30")
    lu.assertEquals({ lines[6], lines[8], lines[24] }, { 2, 2, 2 })
    lu.assertEquals(functions, { ["demo.grade"] = 4, never = 0,
        ["demo.main"] = 0, ["demo.all"] = 2 })
    lines, functions = records(dir, "src/part/init.lua")
    lu.assertEquals({ lines, functions }, { { 3 }, { points = 2 } })
end

function TestCoverage:test_files_that_are_never_loaded_count()
    local dir = project()
    run({ dir, "test", "--coverage" })
    local lines, functions = records(dir, "src/deep/unused.lua")
    lu.assertEquals({ lines, functions },
        { { 0, 0, 0 }, { ["unused.one"] = 0 } })
end

function TestCoverage:test_code_in_coroutines_counts()
    local dir = project([[
        local demo = kzaAppModule
        function test_all()
            local step = coroutine.wrap(function()
                for _ = 1, 3 do
                    coroutine.yield(demo.grade(1))
                end
            end)
            for _ = 1, 3 do
                pcall(step)
                demo.grade(11)
            end
        end]])
    run({ dir, "test", "--coverage" })
    local lines, functions = records(dir, "src/demo.lua")
    lu.assertEquals({ lines[6], lines[8], lines[10] }, { 3, 0, 3 })
    lu.assertEquals(functions["demo.grade"], 6)
end

function TestCoverage:test_code_after_an_error_counts()
    local dir = projects.new({
        ["src/demo.lua"] = [[
local demo = {}
function demo.fails()
    error("meant")
end
function demo.goes_on()
    local ok = pcall(demo.fails)
    return ok
end
return demo
]],
        ["tests/a_test.lua"] = "function test() kzaAppModule.goes_on() end",
    })
    run({ dir, "test", "--coverage" })
    lu.assertEquals((records(dir, "src/demo.lua")[7]), 1)
end

function TestCoverage:test_table_of_files()
    local dir = project()
    lu.assertStrContains(run({ dir, "test", "--coverage" }).out, [[
 covered            lines        functions  file
   0.0 %      0 of      3      0 of      1  src/deep/unused.lua
  85.7 %     18 of     21      2 of      4  src/demo.lua
 100.0 %      1 of      1      1 of      1  src/part/init.lua
  76.0 %     19 of     25      3 of      6  all
]])
end

function TestCoverage:test_standard_output_stays_tap()
    local result = run({ project(), "test", "--tap", "--coverage" })
    lu.assertStrContains(result.err, "76.0 %")
    lu.assertNil(result.out:find("76.0 %", 1, true))
end

function TestCoverage:test_least_percentage()
    local dir = project()
    run({ dir, "test", "--coverage", "--min", "76" })
    local result = kzrun({ dir, "test", "--coverage", "--min=76.1" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err,
        "kzrun: 76.0 % of the lines ran, less than 76.1 %\n")
end

function TestCoverage:test_wrong_usage()
    for _, case in ipairs({
        { { "--min", "10" }, "'--min' needs '--coverage'" },
        { { "--coverage", "--min", "101" }, "'101' is no percentage" },
        { { "--coverage", "--min", "x" }, "'x' is no percentage" },
        { { "--coverage", "--min", "nan" }, "'nan' is no percentage" },
    }) do
        local result = kzrun({ "nowhere", "test", table.unpack(case[1]) })
        lu.assertEquals(result.status, 2)
        lu.assertStrContains(result.err, "kzrun: " .. case[2] .. "; ")
    end
end

function TestCoverage:test_file_that_is_no_lua_is_a_failure()
    local dir = project()
    support.write(dir .. "/src/broken.lua", "x x")
    local result = kzrun({ dir, "test", "--coverage" })
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err, "kzrun: " .. dir .. "/src/broken.lua:1: ")
    lu.assertStrContains(result.out, " all\n")
end

function TestCoverage:test_failed_test_is_a_failure_and_covered()
    local dir = project("function test() kzaAppModule.grade(11) error() end")
    lu.assertEquals(kzrun({ dir, "test", "--coverage" }).status, 1)
    lu.assertEquals(records(dir, "src/demo.lua")[6], 1)
end

function TestCoverage:test_source_behind_a_link()
    local dir = project()
    local elsewhere = support.directory()
    support.shell(("mv %s/src %s/ && ln -s %s/src %s/src"):format(
        quote(dir), quote(elsewhere), quote(elsewhere), quote(dir)))
    run({ dir, "test", "--coverage" })
    lu.assertEquals(records(dir, "src/demo.lua")[6], 2)
end

function TestCoverage:test_genhtml_makes_pages()
    local dir = project()
    run({ dir, "test", "--coverage" })
    local pages = support.directory()
    local made = support.run(("genhtml --quiet --function-coverage -o %s "
        .. "%s/lcov.info"):format(quote(pages), quote(dir)))
    lu.assertEquals(made, { status = 0, out = "", err = "" })
    lu.assertNotNil(host.stat(pages .. "/src/demo.lua.gcov.html")
        or host.stat(pages .. "/demo.lua.gcov.html"))
end
