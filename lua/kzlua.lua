-- SPDX-License-Identifier: Apache-2.0
--
-- kzlua: a Lua prompt inside the agent, with access to the domain. The agent
-- runs this tool:
--
--     kz_agent --appname kzlua
--
-- For an expression its values are printed, for an error its traceback. The
-- prompt goes on until the end of input (Ctrl-D). Lines can be edited and
-- recalled where the module "readline" is installed (Debian: lua-readline).
--
-- When the input is no terminal there are no prompts, and the exit status says
-- whether there was an error.

local host = require("kza.host")

local PROMPT, CONTINUED = "> ", ">> "

-- Reading --------------------------------------------------------------------

-- A function that reads a line and returns nil at the end of input, and one to
-- call when the prompt ends.
local function plain_reader(interactive)
    local function read(prompt)
        if interactive then
            io.write(prompt)
            io.flush()
        end
        return io.read()
    end
    return read, function() end
end

local function editing_reader(readline)
    readline.set_options({
        histfile = dom:Get("app.path.work") .. "/kzlua_history",
        keeplines = 1000,
        completion = false,
    })
    return readline.readline, readline.save_history
end

local function open_reader(interactive)
    local ok, readline = pcall(require, "readline")
    if interactive and ok then
        return editing_reader(readline)
    end
    return plain_reader(interactive)
end

-- Compiling ------------------------------------------------------------------

---@class Compiled
---@field run function
---@field skip number  The number of leading results that are not the user's.

-- Compiles an expression or statements; nil and a message when the text is
-- neither.
local function compile(text)
    -- With a value before the expression, a call is no tail call, which would
    -- be missing in the traceback.
    local expression = text:gsub("^%s*=", "")
    local chunk = load("return nil, " .. expression, "=stdin")
    if chunk then
        return { run = chunk, skip = 1 }
    end
    local statements, message = load(text, "=stdin")
    if statements then
        return { run = statements, skip = 0 }
    end
    return nil, message
end

-- True for the message of a chunk that more lines could complete.
local function is_incomplete(message)
    return message:find("<eof>$") ~= nil
end

-- Reads a chunk, line by line until it is complete. Returns nil and a message
-- when the text is no chunk, and no value at the end of input.
local function read_chunk(read)
    local text = read(PROMPT)
    if not text then
        return nil
    end
    while true do
        local chunk, message = compile(text)
        if chunk or not is_incomplete(message) then
            return chunk, message
        end
        local more = read(CONTINUED)
        if not more then
            return nil, message
        end
        text = text .. "\n" .. more
    end
end

-- Running --------------------------------------------------------------------

-- An error's report without the frames of this prompt.
local function without_prompt(report)
    return (report:gsub("\n%s*%[C%]: in function 'xpcall'.*$", ""))
end

local function complain(text)
    io.flush()
    io.stderr:write(text, "\n")
end

local function run(chunk)
    local results = table.pack(xpcall(chunk.run, host.error_report))
    if not results[1] then
        complain(without_prompt(results[2]))
        return false
    end
    local first = 2 + chunk.skip
    if results.n < first then
        return true
    end
    local ok, report = xpcall(print, host.error_report,
        table.unpack(results, first, results.n))
    if not ok then
        complain("cannot print the result: " .. without_prompt(report))
    end
    return ok
end

local function greet()
    print(("%s in agent %s; 'dom' is the domain, Ctrl-D ends"):format(
        _VERSION, dom:Get("app.version")))
end

local function main()
    local interactive = host.isatty(0)
    local read, finish = open_reader(interactive)
    if interactive then
        greet()
    end

    local failed = false
    while true do
        local chunk, message = read_chunk(read)
        if chunk then
            failed = not run(chunk) or failed
        elseif message then
            complain(message)
            failed = true
        else
            break
        end
    end

    finish()
    if interactive then
        print()
        return 0
    end
    return failed and 1 or 0
end

return { main = main }
