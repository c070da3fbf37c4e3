-- SPDX-License-Identifier: Apache-2.0
--
-- Reads the facts in a crash dump that need no debug symbols.
--
-- A dump is a header, a directory of streams, and blocks to which streams and
-- other blocks refer by offset and size. It may be truncated or malicious:
-- every offset and every count is checked against the file, and no more is read
-- than a dump made by the agent can contain.

local host = require("kza.host")

local minidump = {}

local SIGNATURE = "MDMP"
local HEADER_SIZE, ENTRY_SIZE = 32, 12

local MODULE_LIST, THREAD_LIST, EXCEPTION = 4, 3, 6
local SYSTEM_INFO, COMMENT, MISC_INFO = 7, 10, 15
local COMMAND_LINE = 0x47670006

local MAX_STREAMS = 64
local MAX_TEXT = 64 * 1024
local MAX_STRING = 4096 -- bytes of a path
local MAX_ENTRIES = 4096 -- of a list
local MAX_BUILD_ID = 64

local SIGNALS = {
    [4] = "SIGILL", [5] = "SIGTRAP", [6] = "SIGABRT", [7] = "SIGBUS",
    [8] = "SIGFPE", [11] = "SIGSEGV",
}

-- Numbers --------------------------------------------------------------------

-- The little-endian number of `size` bytes that begins after `at` bytes.
local function number(bytes, at, size)
    local value = 0
    for i = at + size, at + 1, -1 do
        value = value * 256 + bytes:byte(i)
    end
    return value
end

local function u16(bytes, at)
    return number(bytes, at, 2)
end

local function u32(bytes, at)
    return number(bytes, at, 4)
end

-- A number of eight bytes as text: it may be larger than a Lua number holds.
local function hex64(bytes, at)
    local low, high = u32(bytes, at), u32(bytes, at + 4)
    if high == 0 then
        return ("0x%x"):format(low)
    end
    return ("0x%x%08x"):format(high, low)
end

local function utf8(code)
    if code < 0x80 then
        return string.char(code)
    elseif code < 0x800 then
        return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64)
    elseif code < 0x10000 then
        return string.char(0xE0 + math.floor(code / 4096),
            0x80 + math.floor(code / 64) % 64, 0x80 + code % 64)
    end
    return string.char(0xF0 + math.floor(code / 262144),
        0x80 + math.floor(code / 4096) % 64,
        0x80 + math.floor(code / 64) % 64, 0x80 + code % 64)
end

-- The text of little-endian UTF-16; half a pair shows as U+FFFD.
local function text_of_utf16(bytes)
    local characters, at = {}, 0
    while at + 2 <= #bytes do
        local code = u16(bytes, at)
        at = at + 2
        if code >= 0xD800 and code < 0xE000 then
            local low = code < 0xDC00 and at + 2 <= #bytes and u16(bytes, at)
            if low and low >= 0xDC00 and low < 0xE000 then
                code = 0x10000 + (code - 0xD800) * 1024 + low - 0xDC00
                at = at + 2
            else
                code = 0xFFFD
            end
        end
        characters[#characters + 1] = utf8(code)
    end
    return table.concat(characters)
end

-- The file -------------------------------------------------------------------

---@class kza.minidump.Dump
---@field file file*
---@field size number
---@field streams table<integer, { at: integer, size: integer }>
---@field is_short? boolean  A block lies beyond the end of the file.
local Dump = {}
Dump.__index = Dump

-- The bytes of a block. Sets `is_short` and returns nil when the file ends
-- before.
function Dump:bytes(at, size)
    if at + size <= self.size and self.file:seek("set", at) then
        local bytes = size == 0 and "" or self.file:read(size)
        if bytes and #bytes == size then
            return bytes
        end
    end
    self.is_short = true
    return nil
end

-- The first bytes of a stream; nil when there is none or it has fewer.
function Dump:stream(kind, size)
    local place = self.streams[kind]
    if place and place.size >= size then
        return self:bytes(place.at, size)
    end
end

function Dump:read_directory(count, at)
    local entries = self:bytes(at, math.min(count, MAX_STREAMS) * ENTRY_SIZE)
    for from = 0, entries and #entries - 1 or -1, ENTRY_SIZE do
        local kind = u32(entries, from)
        self.streams[kind] = self.streams[kind]
            or { size = u32(entries, from + 4), at = u32(entries, from + 8) }
    end
    return entries ~= nil
end

-- A stream of text, without zeros at its end.
function Dump:text(kind)
    local place = self.streams[kind]
    local bytes = place
        and self:bytes(place.at, math.min(place.size, MAX_TEXT))
    return bytes and bytes:match("^(.-)%z*$")
end

-- A string of the format: a count of bytes, then UTF-16.
function Dump:string(at)
    local size = self:bytes(at, 4)
    local bytes = size
        and self:bytes(at + 4, math.min(u32(size, 0), MAX_STRING))
    return bytes and text_of_utf16(bytes)
end

-- The entries of a list, each as its bytes.
function Dump:list(kind, entry_size)
    local found = {}
    local count = self:stream(kind, 4)
    if not count then
        return found
    end
    local place = self.streams[kind]
    local fitting = math.floor((place.size - 4) / entry_size)
    for i = 0, math.min(u32(count, 0), fitting, MAX_ENTRIES) - 1 do
        local entry = self:bytes(place.at + 4 + i * entry_size, entry_size)
        if not entry then
            return found
        end
        found[#found + 1] = entry
    end
    return found
end

-- The note -------------------------------------------------------------------

-- Lines `key: value`; below "lua:" the frames, each behind two blanks.
local function read_note(text)
    local note = {}
    for line in text:gmatch("[^\n]+") do
        local frame = note.frames and line:match("^  (.*)$")
        local key, value = line:match("^(%w+):%s*(.*)$")
        if frame then
            note.frames[#note.frames + 1] = frame
        elseif key == "lua" then
            note.frames = {}
        elseif key then
            note[key] = note[key] or value
        end
    end
    return note
end

-- The facts ------------------------------------------------------------------

local function whole(text)
    return text and tonumber(text:match("^%d+$"))
end

local function signal_of(note, code)
    local name = note.signal and note.signal:match("%((%w+)%)")
    if name and name ~= "unknown" then
        return name
    end
    return code and (SIGNALS[code] or tostring(code)) or note.signal
end

local function version_of(bytes, at)
    return ("%d.%d.%d.%d"):format(u16(bytes, at + 2), u16(bytes, at),
        u16(bytes, at + 6), u16(bytes, at + 4))
end

-- The build identifier in a module's record, in hexadecimal.
local function build_id(dump, size, at)
    if size <= 4 or size > 4 + MAX_BUILD_ID then
        return nil
    end
    local record = dump:bytes(at, size)
    return record and record:sub(1, 4) == "LEpB"
        and record:sub(5):gsub(".", function(byte)
            return ("%02x"):format(byte:byte())
        end) or nil
end

--- A program or library of the process.
---@class kza.minidump.Module
---@field path? string
---@field base string     In hexadecimal.
---@field size integer
---@field version? string
---@field build_id? string

local function modules_of(dump)
    local modules = {}
    for i, entry in ipairs(dump:list(MODULE_LIST, 108)) do
        modules[i] = {
            base = hex64(entry, 0),
            size = u32(entry, 8),
            path = dump:string(u32(entry, 20)),
            version = u32(entry, 24) == 0xFEEF04BD and version_of(entry, 32)
                or nil,
            build_id = build_id(dump, u32(entry, 76), u32(entry, 80)),
        }
    end
    return modules
end

--- A thread of the process; the first is the one that crashed.
---@class kza.minidump.Thread
---@field id integer
---@field stack string      Lowest address of the part in the dump.
---@field stack_size integer
local function threads_of(dump)
    local threads = {}
    for i, entry in ipairs(dump:list(THREAD_LIST, 48)) do
        threads[i] = {
            id = u32(entry, 0),
            stack = hex64(entry, 24),
            stack_size = u32(entry, 32),
        }
    end
    return threads
end

-- The registers that are shown, and their offsets in the record of a processor.
local PROCESSORS = {
    [9] = {
        name = "x86-64", size = 1232, first = 120, names = {
            "rax", "rcx", "rdx", "rbx", "rsp", "rbp", "rsi", "rdi", "r8", "r9",
            "r10", "r11", "r12", "r13", "r14", "r15", "rip",
        },
    },
    [0x8003] = { name = "aarch64", size = 796, first = 8, names = {} },
}
for i = 0, 30 do
    PROCESSORS[0x8003].names[i + 1] = "x" .. i
end
PROCESSORS[0x8003].names[32] = "sp"
PROCESSORS[0x8003].names[33] = "pc"

-- The registers at the fault, in the order of the processor's record.
local function registers_of(dump, processor, exception)
    local size = exception and u32(exception, 160) or 0
    if not processor or size < processor.size then
        return {}
    end
    local context = dump:bytes(u32(exception, 164), processor.size)
    local registers = {}
    for i, name in ipairs(context and processor.names or {}) do
        registers[i] = {
            name = name, value = hex64(context, processor.first + (i - 1) * 8),
        }
    end
    return registers
end

local function read_details(dump, facts, exception)
    local system = dump:stream(SYSTEM_INFO, 56)
    local processor = system and PROCESSORS[u16(system, 0)]
    facts.processor = processor and processor.name
    facts.system = system and dump:string(u32(system, 24))
    facts.command = dump:text(COMMAND_LINE)
    facts.command = facts.command and facts.command:gsub("%z", " ")
    facts.registers = registers_of(dump, processor, exception)
    facts.threads = threads_of(dump)
    facts.modules = modules_of(dump)
end

-- The agent's version from the module list, for a dump without a note.
local function version_in_modules(dump)
    for _, module in ipairs(modules_of(dump)) do
        if (module.path or ""):match("[^/]*$") == "kz_agent" then
            return module.version
        end
    end
end

--- The facts in a dump. A field without its fact is nil.
---@class kza.minidump.Facts
---@field time integer       Seconds since the epoch.
---@field application? string
---@field version? string    Of the agent.
---@field process? integer
---@field thread? integer    The thread that crashed.
---@field signal? string     Name of the signal, such as "SIGSEGV".
---@field code? string       The signal's si_code.
---@field address? string    The signal's si_addr.
---@field sender? string     Process that sent the signal.
---@field memory? string     "stacks" or "full".
---@field lua? string[]      The script's stack, innermost first; empty when
---                          none ran.
---@field is_short boolean   The file ends too early.
---
--- Only with `in_full`:
---@field processor? string
---@field system? string
---@field command? string
---@field registers? { name: string, value: string }[]
---@field threads? kza.minidump.Thread[]
---@field modules? kza.minidump.Module[]

local function read_facts(dump, time, in_full)
    local note = read_note(dump:text(COMMENT) or "")
    local exception = dump:stream(EXCEPTION, 168)
    local misc = dump:stream(MISC_INFO, 24)
    local facts = {
        time = time,
        application = note.application,
        version = note.version or version_in_modules(dump),
        process = whole(note.process) or misc and u32(misc, 8) or nil,
        thread = whole(note.thread) or exception and u32(exception, 0) or nil,
        signal = signal_of(note, exception and u32(exception, 8)),
        code = note.code,
        address = note.address,
        sender = note.sender,
        memory = note.memory,
        lua = note.frames,
    }
    if in_full then
        read_details(dump, facts, exception)
    end
    facts.is_short = dump.is_short == true
    return facts
end

local function read(file, size, in_full)
    local dump = setmetatable({ file = file, size = size, streams = {} }, Dump)
    local header = dump:bytes(0, HEADER_SIZE)
    if not header or header:sub(1, 4) ~= SIGNATURE then
        return nil, "it is no crash dump"
    end
    if not dump:read_directory(u32(header, 8), u32(header, 12)) then
        return nil, "it is cut short"
    end
    return read_facts(dump, u32(header, 20), in_full)
end

--- Reads a dump.
---@param path string
---@param in_full? boolean  Read registers, threads and modules too.
---@return kza.minidump.Facts? facts
---@return string? message  The reason why the dump cannot be read.
function minidump.read(path, in_full)
    local stat, message = host.stat(path)
    if not stat then
        return nil, message
    end
    if stat.type ~= "file" then
        return nil, path .. ": it is no crash dump"
    end
    local file, reason = io.open(path, "rb")
    if not file then
        return nil, reason
    end
    local facts, problem = read(file, stat.size, in_full)
    file:close()
    return facts, problem and path .. ": " .. problem
end

return minidump
