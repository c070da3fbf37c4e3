-- SPDX-License-Identifier: Apache-2.0
--
-- The coverage of a project's source by its tests: the file lcov.info, which
-- genhtml and editors read, and a table.

local chunk = require("kza.chunk")
local complain = require("kza.run.complain")
local fail = require("kza.ctl.fail")
local files = require("kza.files")
local function_name = require("kza.run.function_name")
local host = require("kza.host")

local coverage = {}

--- A source file of the project, with its coverage.
---@class kza.run.CoveredFile
---@field path string
---@field name string             Relative to the project.
---@field lines integer[]         Lines with instructions, in order.
---@field functions integer[]     Lines where functions begin, in order.
---@field names table<integer, string>  Names of functions, by these lines.
---@field counts { lines: table, functions: table }  Hits, by line.

-- Names of functions, each once.
local function names_of(begins, source)
    local names, taken = {}, {}
    for _, at in ipairs(begins) do
        local name = function_name(source[at] or "") or "function"
        if taken[name] or name == "function" then
            name = ("%s@%d"):format(name, at)
        end
        names[at], taken[name] = name, true
    end
    return names
end

local function sorted(set)
    local list = {}
    for value in pairs(set) do
        list[#list + 1] = value
    end
    table.sort(list)
    return list
end

-- The lines with instructions, and those where functions begin. The last
-- instruction of a function is left out: Lua adds a return to every function.
local function places_in(bytes)
    local lines, functions = {}, {}
    for _, part in ipairs(chunk.functions(bytes)) do
        for i = 1, #part.lines - 1 do
            lines[part.lines[i]] = true
        end
        if part.first > 0 then
            functions[part.first] = true
        end
    end
    return sorted(lines), sorted(functions)
end

-- The record of a file; nil and a message when Lua cannot compile it.
local function read(project, path, covered)
    local text, unreadable = files.read(path)
    local loaded, message = loadfile(path)
    if not text or not loaded then
        return nil, unreadable or message
    end
    local lines, functions = places_in(string.dump(loaded))
    return {
        path = path,
        name = path:sub(#project.dir + 2),
        lines = lines,
        functions = functions,
        names = names_of(functions, files.lines(text)),
        counts = covered[host.real_path(path)]
            or { lines = {}, functions = {} },
    }
end

-- All Lua files below src, and whether all of them could be compiled.
local function read_all(project, covered)
    local found, whole = {}, true
    for _, entry in ipairs(files.tree(project.src) or {}) do
        local hidden = ("/" .. entry.name):find("/.", 1, true)
        if not hidden and entry.info.type ~= "directory"
            and entry.name:find("%.lua$") then
            local file, message = read(project, entry.path, covered)
            if file then
                found[#found + 1] = file
            else
                complain("%s", message)
                whole = false
            end
        end
    end
    return found, whole
end

local function count_hit(places, counts)
    local hit = 0
    for _, line in ipairs(places) do
        hit = hit + ((counts[line] or 0) > 0 and 1 or 0)
    end
    return hit
end

local function add_record(parts, file)
    local counts = file.counts
    local function add(text, ...)
        parts[#parts + 1] = text:format(...)
    end
    add("TN:\nSF:%s\n", file.path)
    for _, line in ipairs(file.functions) do
        add("FN:%d,%s\n", line, file.names[line])
    end
    for _, line in ipairs(file.functions) do
        add("FNDA:%.0f,%s\n", counts.functions[line] or 0, file.names[line])
    end
    add("FNF:%d\nFNH:%d\n", #file.functions,
        count_hit(file.functions, counts.functions))
    for _, line in ipairs(file.lines) do
        add("DA:%d,%.0f\n", line, counts.lines[line] or 0)
    end
    add("LF:%d\nLH:%d\nend_of_record\n", #file.lines,
        count_hit(file.lines, counts.lines))
end

local function write(project, found)
    local parts = {}
    for _, file in ipairs(found) do
        add_record(parts, file)
    end
    local path = files.join(project.dir, "lcov.info")
    local written, message = files.write(path, table.concat(parts))
    if not written then
        fail("%s", message)
    end
end

local function percent(hit, all)
    return all == 0 and 100 or hit * 100 / all
end

local function row(out, hit, all, functions_hit, functions, name)
    out:write(("%6.1f %% %6d of %6d %6d of %6d  %s\n"):format(
        percent(hit, all), hit, all, functions_hit, functions, name))
end

-- Prints a row for each file and one for the sums; returns the sums of lines.
local function print_table(out, found)
    local sums = { 0, 0, 0, 0 }
    out:write(("%8s %16s %16s  %s\n"):format(
        "covered", "lines", "functions", "file"))
    for _, file in ipairs(found) do
        local counts = { count_hit(file.lines, file.counts.lines), #file.lines,
            count_hit(file.functions, file.counts.functions),
            #file.functions }
        for i = 1, #sums do
            sums[i] = sums[i] + counts[i]
        end
        row(out, counts[1], counts[2], counts[3], counts[4], file.name)
    end
    row(out, sums[1], sums[2], sums[3], sums[4], "all")
    return sums[1], sums[2]
end

--- Writes lcov.info and the table.
---@param project kza.run.Project
---@param covered table  The counts of kza.probe, by path.
---@param out file*      The output for the table.
---@param least number   Percent of all lines that must have run.
---@return boolean enough  False, too, when a file could not be compiled.
function coverage.report(project, covered, out, least)
    local found, whole = read_all(project, covered)
    write(project, found)
    local hit, all = print_table(out, found)
    out:flush()
    if hit * 100 < least * all then
        complain("%.1f %% of the lines ran, less than %g %%",
            percent(hit, all), least)
        return false
    end
    return whole
end

return coverage
