-- SPDX-License-Identifier: Apache-2.0
--
-- How kzrun notices that a project's files have changed, with the system's
-- notes and without.

local lu = require("luaunit")
local changes = require("kza.run.changes")
local host = require("kza.host")
local support = require("support")

local watch_of_system = host.watch

local function project()
    local dir = support.directory()
    support.write(dir .. "/src/deep/a.lua", "one")
    return { dir = dir, src = dir .. "/src", tests = dir .. "/tests",
        data = dir .. "/data", lib = dir .. "/lib",
        ini = dir .. "/kz_agent.ini" }
end

local function assert_noticed(found)
    local watch = changes.watch(found)
    for _, change in ipairs({
        { "/src/deep/a.lua", "two" }, { "/src/new/b.lua", "" },
        { "/src/new/b.lua", "longer" }, { "/data/c", "" },
        { "/kz_agent.ini", "[domain]" },
    }) do
        local path = found.dir .. change[1]
        support.write(path, change[2])
        lu.assertEquals({ watch:await() }, { "changed", path })
        os.remove(path)
        lu.assertEquals({ watch:await() }, { "changed", path })
    end
end

TestChanges = {}

function TestChanges:tearDown()
    host.watch = watch_of_system
end

function TestChanges:test_with_notes_of_the_system()
    assert_noticed(project())
end

function TestChanges:test_without_notes()
    host.watch = function() end
    assert_noticed(project())
end

function TestChanges:test_with_a_directory_that_gets_no_notes()
    host.watch = function()
        return { add = function() return nil, "No space left on device" end }
    end
    assert_noticed(project())
end
