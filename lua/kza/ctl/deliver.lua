-- SPDX-License-Identifier: Apache-2.0
--
-- Puts packages with their signatures into the agent's directory: all of them,
-- or none.
--
-- The packages are first copied to a temporary directory beside the agent, and
-- the copies are checked there, so that a later change of the originals does
-- not matter. The copies get their final places by rename, each signature
-- before its package. A file that is replaced is kept in the temporary
-- directory until all renames are done, and is put back when one of them fails.

local fail = require("kza.ctl.fail")
local files = require("kza.files")
local host = require("kza.host")
local verify = require("kza.verify")

local deliver = {}

local SIGNATURE = ".sig"

--- A package that is to be delivered.
---@class kza.ctl.Delivery
---@field from string  Path of the package; its signature is beside it.
---@field name string  New name of the package.

-- Every step returns nil and the reason when it fails.

local function make_directory(where)
    local path = ("%s/.kzctl.%d.%09d"):format(where.bin, os.time(),
        host.clock() * 1e9 % 1e9)
    local made, message = host.make_directory(path)
    return made and path, message
end

local function copy_all(place, deliveries)
    for _, delivery in ipairs(deliveries) do
        local to = files.join(place, delivery.name)
        local copied, message = host.copy(delivery.from, to)
        if copied and host.stat(delivery.from .. SIGNATURE, true) then
            copied, message = host.copy(delivery.from .. SIGNATURE,
                to .. SIGNATURE)
        end
        if not copied then
            return nil, message
        end
    end
    return true
end

-- A reason may name the copy, of which nothing will be left.
local function without(text, part)
    local at, last = text:find(part, 1, true)
    return at and text:sub(1, at - 1) .. text:sub(last + 1) or text
end

local function judge_all(place, deliveries, trust)
    local problems = {}
    for _, delivery in ipairs(deliveries) do
        local reason = verify(files.join(place, delivery.name), trust.keys)[1]
        if reason then
            problems[#problems + 1] = ("'%s' is refused: %s"):format(
                delivery.name, without(reason, place .. "/"))
        end
    end
    if #problems > 0 then
        return nil, table.concat(problems, "; ")
    end
    return true
end

-- Renames files in this order; after a failure, undoes the renames before.
local function rename_all(renames)
    for i, rename in ipairs(renames) do
        local renamed, message = os.rename(rename.from, rename.to)
        if not renamed then
            for done = i - 1, 1, -1 do
                os.rename(renames[done].to, renames[done].from)
            end
            return nil, message
        end
    end
    return true
end

local function renames_of(where, place, deliveries)
    local renames = {}
    local function replace(name)
        local from, to = files.join(place, name), files.join(where.bin, name)
        if host.stat(to, true) then
            renames[#renames + 1] = { from = to, to = from .. ".before" }
        end
        if host.stat(from, true) then
            renames[#renames + 1] = { from = from, to = to }
        end
    end
    for _, delivery in ipairs(deliveries) do
        replace(delivery.name .. SIGNATURE)
        replace(delivery.name)
    end
    return renames
end

local function remove_directory(place)
    for _, name in ipairs(host.list(place) or {}) do
        os.remove(files.join(place, name))
    end
    os.remove(place)
end

local function check_places(where, deliveries)
    local names = {}
    for _, delivery in ipairs(deliveries) do
        if names[delivery.name] then
            fail("'%s' is given twice", delivery.name)
        end
        names[delivery.name] = true
        for _, name in ipairs({ delivery.name, delivery.name .. SIGNATURE }) do
            local path = files.join(where.bin, name)
            if files.is_directory(path) then
                fail("'%s' is a directory", path)
            end
        end
    end
end

--- Delivers packages. When one is refused or cannot be put into its place,
--- undoes all changes and raises the complaint.
---@param where kza.ctl.Place
---@param deliveries kza.ctl.Delivery[]
---@param trust kza.ctl.Trust
function deliver.put(where, deliveries, trust)
    check_places(where, deliveries)
    local place, message = make_directory(where)
    if not place then
        fail("%s", message)
    end
    local done, reason = copy_all(place, deliveries)
    if done then
        done, reason = judge_all(place, deliveries, trust)
    end
    if done then
        done, reason = rename_all(renames_of(where, place, deliveries))
    end
    remove_directory(place)
    if not done then
        fail("%s", reason)
    end
end

return deliver
