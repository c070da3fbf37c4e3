-- SPDX-License-Identifier: Apache-2.0
--
-- Talking to the running agent through its control socket: one JSON object a
-- line each way.

local fail = require("kza.ctl.fail")
local host = require("kza.host")
local json = require("dkjson")

local agent = {}

--- The time that the agent has for an answer.
agent.SECONDS = 5

--- The longest path of a socket, with its final zero.
agent.SOCKET_PATH = 108

--- What the help of a command says that needs the agent.
agent.NEEDS_SOCKET = [[


The agent answers through its control socket: it has to run with the setting
control.socket.]]

--- Connects to the running agent; its absence ends the command.
---@param where kza.ctl.Place
---@return kza.host.Connection
function agent.connect(where)
    local connection, message = nil, "path too long for a socket"
    if #where.socket < agent.SOCKET_PATH then
        connection, message = host.connect(where.socket, agent.SECONDS)
    end
    if not connection then
        fail("no answer at '%s': %s (it is there while '%s' runs with the "
            .. "setting control.socket)", where.socket, message, where.name)
    end
    return connection
end

--- An integer for JSON, kept as digits: a Lua number would hold only 53 bits.
---@param digits string
---@return table
function agent.exact(digits)
    local function text()
        return digits
    end
    return setmetatable({}, { __tostring = text, __tojson = text })
end

--- The next answer; an answer that is an error ends the command.
---@param connection kza.host.Connection
---@param seconds number
---@return table? answer
---@return string? message
function agent.receive(connection, seconds)
    local line, message = connection:line(seconds)
    if not line then
        return nil, message
    end
    local answer = json.decode(line)
    if type(answer) ~= "table" then
        fail("the agent answers what is no JSON: %s", line:sub(1, 60))
    end
    if answer.type == "number" then
        answer.value = agent.exact(line:match('"value":(-?%d+)}$'))
    end
    if not answer.ok then
        fail("%s", tostring(answer.error))
    end
    return answer
end

--- Sends a request and returns its answer; without one the command ends.
---@param connection kza.host.Connection
---@param request table
---@return table
function agent.ask(connection, request)
    local sent, message = connection:send(json.encode(request) .. "\n",
        agent.SECONDS)
    local answer
    if sent then
        answer, message = agent.receive(connection, agent.SECONDS)
    end
    if not answer then
        fail("the agent does not answer: %s", message)
    end
    return answer
end

return agent
