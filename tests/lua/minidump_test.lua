-- SPDX-License-Identifier: Apache-2.0
--
-- Reading crash dumps: whole ones, and those that are cut short or hostile.

local lu = require("luaunit")
local minidump = require("kza.minidump")
local support = require("support")

local function u16(value)
    return string.char(value % 256, math.floor(value / 256) % 256)
end

local function u32(value)
    return u16(value % 65536) .. u16(math.floor(value / 65536))
end

local function u64(value)
    return u32(value % 4294967296) .. u32(math.floor(value / 4294967296))
end

local function utf16(text)
    return (text:gsub(".", "%0\0"))
end

-- A file that is put together piece by piece; pieces know where they lie.
local function new_file(stream_count)
    local file = { bytes = ("\0"):rep(32 + stream_count * 12), streams = {} }

    function file:add(bytes)
        local at = #self.bytes
        self.bytes = self.bytes .. bytes
        return at
    end

    function file:stream(kind, bytes)
        self.streams[#self.streams + 1] =
            u32(kind) .. u32(#bytes) .. u32(self:add(bytes))
    end

    function file:finish(time)
        local head = "MDMP" .. u32(0xA793) .. u32(#self.streams) .. u32(32)
            .. u32(0) .. u32(time) .. u64(0) .. table.concat(self.streams)
        return head .. self.bytes:sub(#head + 1)
    end
    return file
end

local NOTE = [[
application: kz_agent
version: 12.0.0.2932
time: 2026-11-21T06:08:40Z
process: 10909
thread: 10911
signal: 11 (SIGSEGV)
code: 1
address: 0x1230
memory: stacks
lua:
  [C]: in function 'now'
  /opt/kz_agent/lua/tool.lua:3: in function 'inner'
]]

local function string_of(text)
    return u32(#text * 2) .. utf16(text) .. u16(0)
end

local function context()
    local registers = {}
    for i = 1, 17 do
        registers[i] = u64(i == 17 and 0x7F0011112222 or i)
    end
    return ("\0"):rep(120) .. table.concat(registers)
        .. ("\0"):rep(1232 - 120 - 136)
end

local function exception(context_at)
    return u32(10911) .. u32(0) .. u32(11) .. u32(1) .. u64(0) .. u64(0x1230)
        .. u32(0) .. u32(0) .. ("\0"):rep(120) .. u32(1232) .. u32(context_at)
end

local function module(path_at, build_id_at)
    return u64(0x560000001000) .. u32(4096) .. u32(0) .. u32(0) .. u32(path_at)
        .. u32(0xFEEF04BD) .. u32(0x10000) .. u32(12 * 65536) .. u32(2932)
        .. ("\0"):rep(36) .. u32(8) .. u32(build_id_at) .. ("\0"):rep(24)
end

-- A dump as the agent writes one; `note` false leaves the note out.
local function dump(note)
    local file = new_file(7)
    local system_at = file:add(string_of("Linux 6.1"))
    local path_at = file:add(string_of("/opt/kz_agent/kz_agent"))
    local build_id_at = file:add("LEpB\1\2\254\255")
    local context_at = file:add(context())
    file:stream(7, u16(9) .. ("\0"):rep(22) .. u32(system_at) .. ("\0"):rep(28))
    file:stream(15, u32(24) .. u32(1) .. u32(10909) .. ("\0"):rep(12))
    file:stream(6, exception(context_at))
    file:stream(3, u32(1) .. u32(10911) .. ("\0"):rep(20)
        .. u64(0x7FFD00000000) .. u32(512) .. u32(0) .. u64(0))
    file:stream(4, u32(1) .. module(path_at, build_id_at))
    file:stream(0x47670006, "./kz_agent\0--background\0")
    if note ~= false then
        file:stream(10, (note or NOTE) .. "\0\0")
    end
    return file:finish(1795241320)
end

local path = support.directory() .. "/a.mdmp"

local function read(bytes, in_full)
    local file = assert(io.open(path, "wb"))
    file:write(bytes)
    file:close()
    local facts, message = minidump.read(path, in_full)
    return facts, message and message:sub(#path + 1)
end

TestRead = {}

function TestRead:test_the_note()
    lu.assertEquals(read(dump()), {
        time = 1795241320, application = "kz_agent", version = "12.0.0.2932",
        process = 10909, thread = 10911, signal = "SIGSEGV", code = "1",
        address = "0x1230", memory = "stacks", is_short = false,
        lua = {
            "[C]: in function 'now'",
            "/opt/kz_agent/lua/tool.lua:3: in function 'inner'",
        },
    })
end

function TestRead:test_without_a_note_the_streams_tell()
    lu.assertEquals(read(dump(false)), {
        time = 1795241320, version = "12.0.0.2932", process = 10909,
        thread = 10911, signal = "SIGSEGV", is_short = false,
    })
end

function TestRead:test_a_script_that_does_not_run()
    lu.assertEquals(read(dump("lua: not running\n")).lua, {})
end

function TestRead:test_all_that_it_says()
    local facts = read(dump(), true)
    lu.assertEquals(facts.system, "Linux 6.1")
    lu.assertEquals(facts.processor, "x86-64")
    lu.assertEquals(facts.command, "./kz_agent --background")
    lu.assertEquals(facts.registers[1], { name = "rax", value = "0x1" })
    lu.assertEquals(facts.registers[17],
        { name = "rip", value = "0x7f0011112222" })
    lu.assertEquals(facts.threads,
        { { id = 10911, stack = "0x7ffd00000000", stack_size = 512 } })
    lu.assertEquals(facts.modules, { {
        base = "0x560000001000", size = 4096, path = "/opt/kz_agent/kz_agent",
        version = "12.0.0.2932", build_id = "0102feff",
    } })
    lu.assertFalse(facts.is_short)
end

TestDamage = {}

function TestDamage:test_what_is_no_dump()
    for _, bytes in ipairs({ "", "MDM", "MDMP", ("x"):rep(100) }) do
        lu.assertEquals({ read(bytes) }, { nil, ": it is no crash dump" })
    end
    lu.assertEquals({ minidump.read("/") }, { nil, "/: it is no crash dump" })
    lu.assertEquals({ minidump.read("/none") },
        { nil, "/none: No such file or directory" })
end

function TestDamage:test_a_pipe_is_not_waited_for()
    local pipe = support.directory() .. "/pipe"
    support.shell("mkfifo " .. support.quote(pipe))
    lu.assertEquals({ minidump.read(pipe) },
        { nil, pipe .. ": it is no crash dump" })
end

function TestDamage:test_cut_anywhere_it_tells_what_is_left()
    local whole = dump()
    local short = 0
    for length = 0, #whole - 1, 3 do
        local facts = read(whole:sub(1, length), true)
        short = short + (facts and facts.is_short and 1 or 0)
    end
    lu.assertTrue(short > 300)
end

function TestDamage:test_numbers_that_lie()
    local whole = dump()
    -- Each number of four bytes in turn says more than there is.
    for at = 8, #whole - 4, 4 do
        local lie = whole:sub(1, at) .. "\255\255\255\255" .. whole:sub(at + 5)
        read(lie, true)
    end
end

function TestDamage:test_bytes_of_chance()
    math.randomseed(4711)
    local whole = dump()
    for _ = 1, 500 do
        local at = math.random(5, #whole)
        local noise = {}
        for i = 1, math.random(1, 60) do
            noise[i] = string.char(math.random(0, 255))
        end
        noise = table.concat(noise)
        read(whole:sub(1, at - 1) .. noise .. whole:sub(at + #noise), true)
    end
end

function TestDamage:test_a_huge_file_is_not_read()
    support.write(path, dump())
    support.shell("truncate -s 1T " .. support.quote(path))
    lu.assertEquals(minidump.read(path, true).signal, "SIGSEGV")
end

function TestDamage:test_lists_without_end_are_bounded()
    local file = new_file(1)
    file:stream(4, u32(4294967295))
    support.write(path, (file:finish(0):gsub("^(" .. ("."):rep(36) .. ")....",
        "%1\255\255\255\127")))
    support.shell("truncate -s 4G " .. support.quote(path))
    lu.assertEquals(#minidump.read(path, true).modules, 4096)
end
