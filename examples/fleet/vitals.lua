-- SPDX-License-Identifier: Apache-2.0
--
-- Publishes the host's vitals to a stream on the server, which keeps the last
-- of them. What cannot be published is not kept: the next ones say more.

local vitals = {}

local function whole(number)
    return ("%d"):format(number)
end

--- A sample of vitals.probe as names and values in turn, texts all of them. A
--- value that the host did not give is left out.
function vitals.fields(sample)
    local fields = {}
    local function add(name, format, value)
        fields[#fields + 1] = name
        fields[#fields + 1] = format:format(value)
    end

    if sample.uptime then
        add("uptime", "%.0f", sample.uptime)
    end
    if sample.load then
        add("load_1", "%.2f", sample.load.one)
        add("load_5", "%.2f", sample.load.five)
        add("load_15", "%.2f", sample.load.fifteen)
    end
    if sample.memory then
        add("memory_used", "%.0f", sample.memory.used)
        add("memory_total", "%.0f", sample.memory.total)
    end
    for _, disk in ipairs(sample.disks or {}) do
        add("disk_used:" .. disk.mount, "%.0f", disk.total - disk.free)
        add("disk_total:" .. disk.mount, "%.0f", disk.total)
    end
    return fields
end

--- Publishes a sample. The server keeps `length` of them, or up to a hundred
--- more: to cut exactly would cost it more than it is worth.
---
--- Answers true, or nil and why not.
function vitals.publish(servers, key, length, sample)
    local fields = vitals.fields(sample)
    if #fields == 0 then
        return true
    end
    local command = { "XADD", key, "MAXLEN", "~", whole(length), "*" }
    for _, word in ipairs(fields) do
        command[#command + 1] = word
    end
    local id, message = servers:call(key, table.unpack(command))
    return id and true, message
end

return vitals
