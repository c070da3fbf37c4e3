-- SPDX-License-Identifier: Apache-2.0
--
-- kza.host: processes, signals, sockets and the events of another agent.

local lu = require("luaunit")
local host = require("kza.host")
local support = require("support")

TestProcesses = {}

-- A child of this process that sleeps, and a function that ends it.
local function sleeper()
    local pipe = io.popen("echo $$; exec sleep 600")
    local pid = tonumber(pipe:read("*l"))
    while host.process(pid).name ~= "sleep" do
        dom:Sleep(1)
    end
    return pid, function()
        host.kill(pid, "KILL")
        pipe:close()
    end
end

-- The process that runs this script.
local function own_pid()
    local pipe = io.popen("echo $PPID")
    local pid = tonumber(pipe:read("*l"))
    pipe:close()
    return pid
end

function TestProcesses:test_process_tells_of_itself()
    local own = host.process(own_pid())
    lu.assertEquals(own.pid, own_pid())
    lu.assertEquals(own.name, "kz_agent")
    lu.assertEquals(own.executable, support.agent)
    lu.assertTrue(math.abs(own.started - os.time()) < 3600)
    lu.assertTrue(own.cpu_s >= 0 and own.cpu_s < 3600)
    lu.assertTrue(own.rss_kib > 1000)
    lu.assertTrue(own.threads >= 2)
    lu.assertStrMatches(own.directory, "/.*")
    lu.assertStrContains(table.concat(own.words, " "), " --unittest ")
end

function TestProcesses:test_processes_of_an_executable()
    local pids = host.processes(support.agent)
    local own = false
    for _, pid in ipairs(pids) do
        own = own or pid == own_pid()
    end
    lu.assertTrue(own)
    lu.assertEquals(host.processes("/nowhere"), {})
end

function TestProcesses:test_processes_in_a_directory()
    local pid, stop = sleeper()
    local sleep = host.process(pid).executable
    local here = host.process(pid).directory
    local function is_among(pids)
        for _, found in ipairs(pids) do
            if found == pid then
                return true
            end
        end
        return false
    end
    lu.assertTrue(is_among(host.processes(sleep)))
    lu.assertTrue(is_among(host.processes(sleep, here .. "/.")))
    lu.assertFalse(is_among(host.processes(sleep, support.directory())))
    lu.assertFalse(is_among(host.processes(sleep, "/nowhere")))
    stop()
end

function TestProcesses:test_real_path()
    local place = support.directory()
    support.shell("ln -s . " .. support.quote(place .. "/link"))
    lu.assertEquals(host.real_path(place .. "/link/./link"),
        host.real_path(place))
    lu.assertEquals({ host.real_path(place .. "/none") },
        { nil, place .. "/none: No such file or directory" })
end

function TestProcesses:test_versions()
    local versions = host.versions()
    lu.assertStrMatches(versions.lua, "Lua 5%.2.*")
    lu.assertStrMatches(versions.openssl, "OpenSSL .*")
    lu.assertStrMatches(versions.sqlite, "3%..*")
    lu.assertStrMatches(versions.wxwidgets, ".*%d+%.%d+%.%d+.*")
end

function TestProcesses:test_children_are_listed_with_their_parent()
    local pid, stop = sleeper()
    local found = false
    for _, child in ipairs(host.children(own_pid())) do
        found = found or child == pid
    end
    lu.assertTrue(found)
    lu.assertEquals(host.process(pid).parent, own_pid())
    lu.assertEquals(host.children(pid), {})
    stop()
end

function TestProcesses:test_a_process_that_is_gone_is_nil()
    local pid, stop = sleeper()
    lu.assertEquals(host.kill(pid, "NONE"), true)
    stop()
    lu.assertNil(host.process(pid))
    local sent, message = host.kill(pid, "NONE")
    lu.assertNil(sent)
    lu.assertEquals(message, "No such process")
end

function TestProcesses:test_arguments_are_checked()
    lu.assertErrorMsgContains("not a process id", host.process, 0)
    lu.assertErrorMsgContains("not a process id", host.kill, -1, "TERM")
    lu.assertErrorMsgContains("invalid option 'HUP'", host.kill, 1, "HUP")
    lu.assertErrorMsgContains("a program expected", host.run, {})
    lu.assertErrorMsgContains("words expected", host.run, { {} })
end

function TestProcesses:test_run_needs_no_shell()
    local status, output =
        host.run({ "/bin/echo", "a  b", "$HOME", "c;d", "" })
    lu.assertEquals(status, 0)
    lu.assertEquals(output, "a  b $HOME c;d \n")
end

function TestProcesses:test_run_tells_how_it_ended()
    lu.assertEquals({ host.run({ "/bin/sh", "-c", "echo e >&2; exit 7" }) },
        { 7, "e\n" })
    lu.assertEquals(host.run({ "/bin/sh", "-c", "kill -KILL $$" }), 137)
    lu.assertEquals({ host.run({ "/nowhere/tool" }) },
        { nil, "/nowhere/tool: No such file or directory" })
end

function TestProcesses:test_clock_goes_forward()
    local before = host.clock()
    dom:Sleep(20)
    lu.assertTrue(host.clock() - before >= 0.02)
end

TestSockets = {}

-- Answers each line with itself, in a process of its own.
local function echo_server(path, script)
    local file = support.directory() .. "/server.lua"
    support.write(file, ([[
local socket = require("socket.unix")()
assert(socket:bind(%q))
assert(socket:listen())
io.stdout:write("ready\n") io.stdout:flush()
local client = socket:accept()
%s
]]):format(path, script))
    local pipe = io.popen("lua5.2 " .. support.quote(file) .. " 2>&1", "r")
    lu.assertEquals(pipe:read("*l"), "ready")
    return pipe
end

function TestSockets:test_lines_come_and_go()
    local path = support.directory() .. "/s"
    local server = echo_server(path, [[
for i = 1, 3 do client:send(client:receive("*l") .. "\n") end
client:send("half")
client:close()]])
    local connection = host.connect(path)
    lu.assertEquals(connection:send("one\ntwo\n"), true)
    lu.assertEquals(connection:line(), "one")
    lu.assertEquals(connection:line(), "two")
    local long = ("x"):rep(1000000)
    lu.assertEquals(connection:send(long .. "\n"), true)
    lu.assertTrue(connection:line() == long)
    lu.assertEquals({ connection:line() }, { nil, "closed" })
    connection:close()
    lu.assertErrorMsgContains("connection is closed",
        connection.send, connection, "x")
    server:close()
end

function TestSockets:test_time_out_keeps_what_was_received()
    local path = support.directory() .. "/s"
    local server = echo_server(path, [[
client:send("half a")
client:receive("*l")
client:send(" line\n")
client:receive("*l")]])
    local connection = host.connect(path)
    lu.assertEquals({ connection:line(0.05) }, { nil, "timeout" })
    connection:send("go on\n")
    lu.assertEquals(connection:line(), "half a line")
    connection:close()
    server:close()
end

function TestSockets:test_failures_are_nil_and_a_message()
    local place = support.directory()
    support.write(place .. "/file", "")
    lu.assertEquals({ host.connect(place .. "/none") },
        { nil, "No such file or directory" })
    lu.assertEquals({ host.connect(place .. "/file") },
        { nil, "Connection refused" })
    lu.assertErrorMsgContains("path too long", host.connect, ("x"):rep(200))
end

TestEvents = {}

local function store(place, count)
    local command = ([[
for i = 1, %d do
    dom:AgentEventWrite{text = "event " .. i, number = i, severity = 2}
end
return {}]]):format(count)
    support.write(place .. "/writer.lua", command)
    local result = support.run(("%s --appname writer --workdir %s "
        .. "--lua_path '%s/?.lua'"):format(
        support.agent, place .. "/work", place))
    lu.assertEquals(result.status, 0, result.err)
    return place .. "/work/events.db"
end

function TestEvents:test_the_last_are_read_without_a_trace()
    local place = support.directory()
    local path = store(place, 5)
    local before = host.list(place .. "/work")
    local all = host.events(path)
    lu.assertEquals(#all, 5)
    lu.assertEquals(all[1].text, "event 1")
    lu.assertEquals(all[5].number, 5)
    local some = host.events(path, 2, 2)
    lu.assertEquals(#some, 2)
    lu.assertEquals(some[1].id, 4)
    lu.assertEquals(host.events(path, 5), {})
    lu.assertEquals(host.list(place .. "/work"), before)
end

function TestEvents:test_what_is_no_database_is_said()
    local place = support.directory()
    support.write(place .. "/junk", ("junk"):rep(1000))
    lu.assertEquals({ host.events(place .. "/junk") },
        { nil, place .. "/junk: file is not a database" })
    lu.assertEquals({ host.events(place .. "/none") },
        { nil, place .. "/none: No such file or directory" })
    lu.assertEquals(host.list(place), { "junk" })
end

function TestEvents:test_strange_names_are_names()
    local place = support.directory() .. "/ä ?#%41"
    os.execute("mkdir " .. support.quote(place))
    local path = store(support.directory(), 1)
    os.execute(("cp %s %s"):format(support.quote(path),
        support.quote(place .. "/e?mode=rw.db")))
    lu.assertEquals(#host.events(place .. "/e?mode=rw.db"), 1)
end
