-- SPDX-License-Identifier: Apache-2.0
--
-- Reads the host's vitals: load, memory, uptime and how full the disks are.
--
-- Every function answers a table or number, or nil where the host does not
-- offer the source: an agent must go on when one of its senses fails.

local probe = {}

-- A module that may be there or not; false once it is known to be missing. It
-- is asked for with the first sample: looking for it in all its places takes a
-- while, which the start of the agent should not have to wait for.
local statvfs

local function has_statvfs()
    if statvfs == nil then
        -- pcall catches the error that require raises for a missing module.
        local found, module = pcall(require, "posix.sys.statvfs")
        statvfs = found and module
    end
    return statvfs
end

local function read_all(path)
    local file = io.open(path, "r")
    if not file then
        return nil
    end
    local text = file:read("*a")
    file:close()
    return text
end

--- The load averages of the last 1, 5 and 15 minutes.
function probe.load()
    local text = read_all("/proc/loadavg") or ""
    local one, five, fifteen = text:match("^(%S+) (%S+) (%S+)")
    if not one then
        return nil
    end
    return {
        one = tonumber(one),
        five = tonumber(five),
        fifteen = tonumber(fifteen),
    }
end

--- Memory in bytes. "Available" counts what the system would give up for a
--- program that asks, such as its file cache.
function probe.memory()
    local text = read_all("/proc/meminfo") or ""
    local total = tonumber(text:match("MemTotal:%s+(%d+) kB"))
    local available = tonumber(text:match("MemAvailable:%s+(%d+) kB")
        or text:match("MemFree:%s+(%d+) kB"))
    if not (total and available) or total == 0 then
        return nil
    end
    return { total = total * 1024, used = (total - available) * 1024 }
end

--- Seconds since the host started.
function probe.uptime()
    return tonumber((read_all("/proc/uptime") or ""):match("^%S+"))
end

-- /proc/mounts writes a blank in a path as \040, and so on.
local function unescape(path)
    return (path:gsub("\\(%d%d%d)", function(octal)
        return string.char(tonumber(octal, 8))
    end))
end

-- Where disks are mounted: "/" and every mount of a device, each device once.
local function mount_points()
    local points, seen = { "/" }, {}
    for line in (read_all("/proc/mounts") or ""):gmatch("[^\n]+") do
        local device, point = line:match("^(%S+) (%S+)")
        if point == "/" then
            seen[device] = true
        elseif device:sub(1, 5) == "/dev/" and not seen[device] then
            seen[device] = true
            points[#points + 1] = unescape(point)
        end
    end
    return points
end

-- Total and free bytes by the system call, through lua-posix.
local function space_by_call(point)
    local info = statvfs.statvfs(point)
    if info then
        return info.f_blocks * info.f_frsize, info.f_bavail * info.f_frsize
    end
end

-- The same from the program df, for a host without lua-posix. Quotes keep the
-- shell from reading anything into the path.
local function space_by_program(point)
    local quoted = "'" .. point:gsub("'", "'\\''") .. "'"
    local pipe = io.popen("df -kP " .. quoted .. " 2>/dev/null")
    if not pipe then
        return nil
    end
    local text = pipe:read("*a")
    pipe:close()
    local total, free = text:match("\n.-%s(%d+)%s+%d+%s+(%d+)%s+%d+%%")
    if total then
        return tonumber(total) * 1024, tonumber(free) * 1024
    end
end

--- Disks in bytes, as an array of {mount=, total=, free=}, "/" first.
function probe.disks()
    local space = has_statvfs() and space_by_call or space_by_program
    local disks = {}
    for _, point in ipairs(mount_points()) do
        local total, free = space(point)
        if total and total > 0 then
            disks[#disks + 1] = { mount = point, total = total, free = free }
        end
    end
    return disks
end

--- All of them at one moment.
function probe.sample()
    return {
        load = probe.load(),
        memory = probe.memory(),
        uptime = probe.uptime(),
        disks = probe.disks(),
    }
end

return probe
