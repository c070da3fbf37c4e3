-- SPDX-License-Identifier: Apache-2.0
--
-- The agent that runs a project: its working directory and its command line.

local fail = require("kza.ctl.fail")
local files = require("kza.files")
local host = require("kza.host")
local literal = require("kza.run.literal")

local agent = {}

-- The framework's configuration compares the names of groups and entries
-- without regard to case.
local function sets_console(text)
    local group = ""
    for line in text:gmatch("[^\r\n]+") do
        group = line:match("^%s*%[([^%]]*)%]") or group
        if group:lower() == "domain"
            and line:lower():find("^%s*log%.console%s*=") then
            return true
        end
    end
    return false
end

-- The project's settings, with what is usual here behind them.
local function settings(project)
    if not host.stat(project.ini) then
        return "[domain]\nlog.console=info\n"
    end
    local text, message = files.read(project.ini)
    if not text then
        fail("%s", message)
    end
    -- In an encoding of several bytes nothing can be added.
    if sets_console(text) or text:find("\0", 1, true) then
        return text
    end
    return text .. "\n[domain]\nlog.console=info\n"
end

local function must(done, message)
    if not done then
        fail("%s", message)
    end
end

--- Makes what the agent finds in its working directory when it starts.
---@param project kza.run.Project
function agent.prepare(project)
    if not files.is_directory(project.work) then
        must(host.make_directory(project.work))
    end
    must(files.write(project.work .. "/kz_agent.ini", settings(project)))
end

local function make_directories(base, path)
    for at in path:gmatch("()/") do
        local directory = files.join(base, path:sub(1, at - 1))
        if not files.is_directory(directory) then
            must(host.make_directory(directory))
        end
    end
end

--- Lets steps of a command run in the agent before the application is loaded,
--- see kza.run.begin.
---@param project kza.run.Project
---@param command string
---@param plan table
---@return string first  For agent.command.
function agent.begin_with(project, command, plan)
    local first = files.join(project.work, command)
    local name = project.name:gsub("%.", "/") .. ".lua"
    make_directories(project.work, command .. "/" .. name)
    must(files.write(files.join(first, name),
        ("-- Written by kzrun for one run.\n"
        .. "return require(\"kza.run.begin\")(%s, %s, %s, ...)\n"):format(
            literal.write(command), literal.write(plan),
            literal.write(project.module))))
    return first
end

-- The agent expands variables in this option's value.
local function unexpanded(path)
    return (path:gsub("[$%%]", "\\%0"))
end

--- The command line that starts it in the foreground.
---@param project kza.run.Project
---@param words string[]     For the application.
---@param options? string[]  More of the agent's own.
---@param first? string      A directory with modules that win over all others.
---@return string[]
function agent.command(project, words, options, first)
    local places = { project.src .. "/?.lua", project.src .. "/?/init.lua",
        project.data .. "/?.lua" }
    if first then
        table.insert(places, 1, first .. "/?.lua")
    end
    local command = { dom:Get("app.path.exe"), "--appname=" .. project.name,
        "--workdir", unexpanded(project.work),
        "--lua_path", table.concat(places, ";"),
        "--lua_cpath", project.lib .. "/?.so" }
    for _, option in ipairs(options or {}) do
        command[#command + 1] = option
    end
    command[#command + 1] = "--"
    for _, word in ipairs(words) do
        command[#command + 1] = word
    end
    return command
end

return agent
