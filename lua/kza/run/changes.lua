-- SPDX-License-Identifier: Apache-2.0
--
-- Notices that files of a project have changed. The system's notes only say
-- when to look; what has changed is found by comparing what lies there.

local files = require("kza.files")
local host = require("kza.host")

local changes = {}

-- Seconds between looks where the system gives no notes.
local LOOK = 0.2

-- An editor or a tool writes several files: a change is whole when there was no
-- further one for so many seconds, or after the longest time.
local SETTLE, LONGEST = 0.05, 0.25

---@class kza.run.Watch
---@field project kza.run.Project
---@field notes? userdata      Of host.watch, where there are any.
---@field seen table<string, string>
local Watch = {}
Watch.__index = Watch

-- Editors keep copies under such names.
local function is_passing(name)
    return name:find("^%.") ~= nil or name:find("~$") ~= nil
end

local function mark(info)
    return ("%s %.0f %.6f %.0f"):format(
        info.type, info.size, info.modified, info.inode)
end

-- Notes what lies in a directory and below; what vanishes meanwhile is not
-- there.
local function look(found, directory, notes)
    if notes and not notes:add(directory) then
        return false
    end
    local whole = true
    for _, name in ipairs(host.list(directory) or {}) do
        local path = files.join(directory, name)
        local info = not is_passing(name) and host.stat(path, true)
        if info and info.type == "directory" then
            whole = look(found, path, notes) and whole
        elseif info then
            local target = host.stat(path)
            found[path] = mark(info) .. (target and mark(target) or "")
        end
    end
    return whole
end

-- All files that count, by path. Without notes for every directory, they are
-- of no use.
function Watch:look()
    local found = {}
    local project = self.project
    local whole = not self.notes or self.notes:add(project.dir)
    for _, directory in ipairs({ project.src, project.data, project.tests,
        project.lib }) do
        if files.is_directory(directory) then
            whole = look(found, directory, self.notes) and whole
        end
    end
    local ini = host.stat(project.ini)
    found[project.ini] = ini and mark(ini)
    if not whole then
        self.notes = nil
    end
    return found
end

-- The first path, by name, that is new, gone or different.
local function difference(before, after)
    local first
    for _, pair in ipairs({ { before, after }, { after, before } }) do
        for path, text in pairs(pair[1]) do
            if pair[2][path] ~= text and (not first or path < first) then
                first = path
            end
        end
    end
    return first
end

-- Looks until two looks are the same, and not for long.
function Watch:settle()
    local deadline = host.clock() + LONGEST
    local now = self:look()
    while host.clock() < deadline do
        dom:Sleep(SETTLE * 1000)
        local before = now
        now = self:look()
        if not difference(before, now) then
            break
        end
    end
    return now
end

--- Waits for a change, a signal, or the end of a program.
---@param pid? integer
---@return "changed"|"signal"|"ended" event
---@return any value  The first path that changed; else as host.await has it.
---@return any more
function Watch:await(pid)
    while true do
        local event, value, more =
            host.await(self.notes and math.huge or LOOK, pid, self.notes)
        if event == "signal" or event == "ended" then
            return event, value, more
        end
        if difference(self.seen, self:look()) then
            local now = self:settle()
            local path = difference(self.seen, now)
            self.seen = now
            if path then
                return "changed", path
            end
        end
    end
end

--- A watch over the files of a project, from now on.
---@param project kza.run.Project
---@return kza.run.Watch
function changes.watch(project)
    local watch = setmetatable({ project = project, notes = host.watch() },
        Watch)
    watch.seen = watch:look()
    return watch
end

return changes
