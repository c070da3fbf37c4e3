-- SPDX-License-Identifier: Apache-2.0
--
-- The agent that a command is about, and the paths of its files.

local place = {}

--- An agent on this host, running or not.
---@class kza.ctl.Place
---@field name string      Of the application.
---@field bin string       Directory of the executable.
---@field agent string     Path of the executable.
---@field work string      Its working directory.
---@field pid_file string
---@field log string       The log's present file; older ones end in .1 to .N.
---@field socket string    Of the control socket.
---@field events string    The database of agent events.
---@field dumps string     Directory of the crash dumps.
---@field dump string      The last dump.

-- The default working directory. For the installation in /opt it is outside of
-- the installation's directory.
local function default_work(bin)
    if bin == "/opt/kz_agent" then
        return "/var/opt/kz_agent"
    end
    return bin .. "/work"
end

local function at(name, bin, work)
    local file = name:gsub("/", "_") -- as the agent names its files
    return {
        name = name,
        bin = bin,
        agent = bin .. "/kz_agent",
        work = work,
        pid_file = "/var/run/" .. name .. ".pid",
        log = work .. "/log/" .. file .. ".log",
        socket = work .. "/run/" .. file .. ".sock",
        events = work .. "/events.db",
        dumps = work .. "/diag",
        dump = work .. "/diag/" .. name .. ".mdmp",
    }
end

--- The agent that the options name, else the environment, else the one in this
--- program's directory.
---@param options { appname?: string, workdir?: string }
---@return kza.ctl.Place
function place.find(options)
    local bin = dom:Get("app.path.bin")
    return at(options.appname or os.getenv("KZ_APPNAME") or "kz_agent", bin,
        options.workdir or os.getenv("KZ_WORKDIR") or default_work(bin))
end

--- The same agent in another working directory.
---@param where kza.ctl.Place
---@param work string
---@return kza.ctl.Place
function place.moved(where, work)
    return at(where.name, where.bin, work)
end

return place
