-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR test: runs the tests in an agent, in the place of the
-- application's `main`.

local agent = require("kza.run.agent")
local complain = require("kza.run.complain")
local coverage = require("kza.run.coverage")
local fail = require("kza.ctl.fail")
local files = require("kza.files")
local host = require("kza.host")
local literal = require("kza.run.literal")
local project = require("kza.run.project")
local supervise = require("kza.run.supervise")

-- The scripts of a project, hidden ones apart.
local function scripts_of(found)
    local scripts = {}
    for _, entry in ipairs(files.tree(found.tests) or {}) do
        local hidden = ("/" .. entry.name):find("/.", 1, true)
        if not hidden and entry.info.type ~= "directory"
            and entry.name:find("_test%.lua$") then
            scripts[#scripts + 1] = entry.path
        end
    end
    if #scripts == 0 then
        fail("there is no test: no file is named *_test.lua in %s", found.tests)
    end
    return scripts
end

local function result_file(found)
    return found.work .. "/test/result"
end

local function prepare(line)
    local found = project.find(line.dir, line.app)
    local plan = {
        scripts = scripts_of(found),
        result = result_file(found),
        pattern = line.rest[1],
        limit = line.timeout > 0 and line.timeout or nil,
        tap = line.tap,
        junit = line.junit,
        cover = line.coverage and host.real_path(found.src) or nil,
    }
    agent.prepare(found)
    local first = agent.begin_with(found, "test", plan)
    os.remove(plan.result)
    return agent.command(found, line.words, { "--unittest", "*" }, first)
end

-- The status of a run, from its end and from what the steps in the agent have
-- written at the end of the tests.
local function status_of(found, line, ended)
    if ended.interrupted then
        return 0
    end
    local text = files.read(result_file(found))
    local result = text and literal.read(text)
    if not result then
        complain("the tests did not come to their end")
        return ended.status == 0 and 1 or supervise.status(ended)
    end
    local enough = not line.coverage or coverage.report(found, result.covered,
        line.tap and io.stderr or io.stdout, line.min or 0)
    if result.failures > 0 or not enough then
        return 1
    end
    return supervise.status(ended)
end

local function run(line)
    line.timeout = line.timeout or 60
    local found = project.find(line.dir, line.app)
    local function again()
        return prepare(line)
    end
    if not line.watch then
        return status_of(found, line, supervise.run(again()))
    end
    scripts_of(found)
    supervise.watch(found, again, function(ended)
        if status_of(found, line, ended) ~= 0 then
            return "failed"
        end
        return "passed"
    end)
    return 0
end

local function check(line, rest)
    if line.min and not line.coverage then
        return "'--min' needs '--coverage'"
    end
    local pattern = rest[1]
    local ok, message = pcall(string.find, "", pattern or "")
    if not ok then
        return ("'%s': %s"):format(pattern, message)
    end
end

return {
    usage = "DIR test [PATTERN] [-- WORD...]",
    summary = "runs the tests",
    description = [[
Runs the scripts DIR/tests/*_test.lua under LuaUnit, in an agent in which the
application's 'init' has run. With PATTERN, a Lua pattern, only the tests of the
scripts whose names fit it, and those that fit it themselves as Class.test. The
words after "--" are LuaUnit's own. The status is 1 when a test failed or there
was none, or less ran than --min wants. Coverage goes to DIR/lcov.info, which
genhtml turns into pages.]],
    options = { "app", "watch", "junit", "tap", "timeout", "coverage",
        "min" },
    most = 1,
    takes_words = true,
    check = check,
    run = run,
}
