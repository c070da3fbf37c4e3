-- SPDX-License-Identifier: Apache-2.0
--
-- Turns a sample of the host's vitals into a line that people can read.
--
-- Pure functions, values in and text out: the part of an agent that is easiest
-- to test. Keep what touches the host in a module of its own.

local report = {}

local UNITS = { "B", "KiB", "MiB", "GiB", "TiB", "PiB" }

--- 1536 becomes "1.5 KiB".
function report.bytes(count)
    local unit = 1
    while count >= 1024 and unit < #UNITS do
        count = count / 1024
        unit = unit + 1
    end
    return ("%.1f %s"):format(count, UNITS[unit])
end

--- 93784 seconds become "1d 02:03".
function report.duration(seconds)
    local minutes = math.floor(seconds / 60)
    local hours = math.floor(minutes / 60)
    local days = math.floor(hours / 24)
    return ("%dd %02d:%02d"):format(days, hours % 24, minutes % 60)
end

--- A part of a whole, rounded to full percent.
function report.percent(part, whole)
    return math.floor(100 * part / whole + 0.5)
end

-- The fullest disk is the one to worry about.
local function fullest(disks)
    local worst, worst_share
    for _, disk in ipairs(disks or {}) do
        local share = (disk.total - disk.free) / disk.total
        if not worst or share > worst_share then
            worst, worst_share = disk, share
        end
    end
    return worst
end

--- One line for a sample; a value that the host did not give is left out.
function report.line(sample)
    local parts = {}
    local function add(format, ...)
        parts[#parts + 1] = format:format(...)
    end

    if sample.uptime then
        add("up %s", report.duration(sample.uptime))
    end
    if sample.load then
        local load = sample.load
        add("load %.2f %.2f %.2f", load.one, load.five, load.fifteen)
    end
    if sample.memory then
        local used, total = sample.memory.used, sample.memory.total
        add("memory %d%% of %s",
            report.percent(used, total), report.bytes(total))
    end
    local disk = fullest(sample.disks)
    if disk then
        add("disk %s %d%% of %s", disk.mount,
            report.percent(disk.total - disk.free, disk.total),
            report.bytes(disk.total))
    end
    return table.concat(parts, ", ")
end

return report
