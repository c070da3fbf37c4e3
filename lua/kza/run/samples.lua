-- SPDX-License-Identifier: Apache-2.0
--
-- The samples of a profile, read from the file that kza.probe writes.

local files = require("kza.files")
local function_name = require("kza.run.function_name")
local utf8 = require("kza.utf8")

local samples = {}

--- A function of the profiled program.
---@class kza.run.Frame
---@field name string
---@field file? string   Relative to the project where it lies there; none for
---                      a C function.
---@field line? integer  Line of the definition.
---@field label string   Name and place as one text.

--- The time that was spent with one call stack.
---@class kza.run.Sample
---@field ms number           CPU time in milliseconds.
---@field stack integer[]     Indices of frames, the outermost first.

---@class kza.run.Profile
---@field frames kza.run.Frame[]
---@field samples kza.run.Sample[]
---@field ms number           The sum of all samples.

-- A frame in the place of the outer frames of a deep stack.
local CUT = { name = "...", label = "..." }

local function text_of(bytes)
    return (utf8.valid(bytes):gsub("%c", " "))
end

-- A path below the project's directory is shown without the directory.
local function shown_path(source, dir)
    if source:sub(1, #dir + 1) == dir .. "/" then
        return source:sub(#dir + 2)
    end
    return source
end

-- Lua has no name for a function that a tail call began; the source may have.
local function name_in_source(source, at, sources)
    if not sources[source] then
        sources[source] = files.lines(files.read(source) or "")
    end
    return function_name(sources[source][at] or "") or "function"
end

local function read_frame(line, dir, sources)
    local at, source, name = line:match("^F (%-?%d+) ([^\t]*)\t(.*)$")
    if source == "[C]" then
        name = name ~= "" and text_of(name) or "?"
        return { name = name, label = name .. " [C]" }
    end
    at = tonumber(at)
    local file = text_of(shown_path(source, dir))
    name = name ~= "" and text_of(name) or name_in_source(source, at, sources)
    return { name = name, file = file, line = at > 0 and at or nil,
        label = at > 0 and ("%s %s:%d"):format(name, file, at)
            or ("%s %s"):format(name, file) }
end

local function read_sample(profile, line)
    local ns, cut, numbers = line:match("^S (%d+) (%-?)([%d ]*)$")
    local stack = {}
    if cut == "-" then
        stack[1] = profile.cut or #profile.frames + 1
        profile.cut = stack[1]
        profile.frames[profile.cut] = CUT
    end
    for number in numbers:gmatch("%d+") do
        stack[#stack + 1] = profile.numbers[tonumber(number) + 1]
    end
    return { ms = tonumber(ns) / 1e6, stack = stack }
end

--- Reads a file of samples. A line that the end of the program has cut is left
--- out.
---@param path string
---@param dir string  The project's directory.
---@return kza.run.Profile? profile
---@return string? message
function samples.read(path, dir)
    local text, message = files.read(path)
    if not text then
        return nil, message
    end
    local sources = {}
    local profile = { frames = {}, samples = {}, numbers = {}, ms = 0 }
    for line in text:gmatch("([^\n]*)\n") do
        if line:sub(1, 1) == "F" then
            local index = #profile.frames + 1
            profile.frames[index] = read_frame(line, dir, sources)
            profile.numbers[#profile.numbers + 1] = index
        else
            local sample = read_sample(profile, line)
            profile.samples[#profile.samples + 1] = sample
            profile.ms = profile.ms + sample.ms
        end
    end
    return profile
end

return samples
