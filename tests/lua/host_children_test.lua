-- SPDX-License-Identifier: Apache-2.0
--
-- kza.host: a program in the foreground, and the wait for what comes first.

local lu = require("luaunit")
local host = require("kza.host")
local support = require("support")

local LONG = 60 -- seconds that no test takes

local function start(script)
    return assert(host.start({ "/bin/sh", "-c", script }))
end

-- The process that runs this script.
local function own_pid()
    local pipe = io.popen("echo $PPID")
    local pid = tonumber(pipe:read("*l"))
    pipe:close()
    return pid
end

TestChildren = {}

function TestChildren:test_end_with_a_status()
    local pid = start("exit 7")
    lu.assertEquals({ host.await(LONG, pid) }, { "ended", 7 })
end

function TestChildren:test_end_by_a_signal()
    local pid = start("kill -KILL $$")
    lu.assertEquals({ host.await(LONG, pid) }, { "ended", nil, 9 })
end

function TestChildren:test_program_that_is_not_there()
    local pid, message = host.start({ "/nowhere/program" })
    lu.assertNil(pid)
    lu.assertEquals(message, "/nowhere/program: No such file or directory")
end

function TestChildren:test_time_out()
    local pid = start("exec sleep 60")
    lu.assertEquals({ host.await(0.01, pid) }, { "timeout" })
    host.kill(pid, "KILL")
    lu.assertEquals({ host.await(math.huge, pid) }, { "ended", nil, 9 })
end

function TestChildren:test_signals_are_told_in_order_and_end_nothing()
    assert(host.take_signals())
    for _, name in ipairs({ "TERM", "INT", "HUP" }) do
        support.shell(("kill -%s %d"):format(name, own_pid()))
        lu.assertEquals({ host.await(LONG) }, { "signal", name, false })
    end
    lu.assertEquals({ host.await(0) }, { "timeout" })
end

TestWatch = {}

function TestWatch:setUp()
    self.directory = support.directory()
    self.watch = host.watch()
    lu.skipIf(not self.watch, "this system has none")
    assert(self.watch:add(self.directory))
end

function TestWatch:test_tells_of_a_file_that_was_written()
    lu.assertEquals({ host.await(0, nil, self.watch) }, { "timeout" })
    support.write(self.directory .. "/file", "text")
    lu.assertEquals({ host.await(LONG, nil, self.watch) }, { "changed" })
    lu.assertEquals({ host.await(0, nil, self.watch) }, { "timeout" })
end

function TestWatch:test_tells_of_a_file_that_was_removed()
    support.write(self.directory .. "/file", "text")
    host.await(LONG, nil, self.watch)
    os.remove(self.directory .. "/file")
    lu.assertEquals({ host.await(LONG, nil, self.watch) }, { "changed" })
end

function TestWatch:test_directory_that_is_not_there()
    local path = self.directory .. "/none"
    lu.assertEquals({ self.watch:add(path) },
        { nil, path .. ": No such file or directory" })
end
