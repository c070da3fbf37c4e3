-- SPDX-License-Identifier: Apache-2.0
--
-- What a start of an agent would find: its settings, its module, and the
-- warnings that it would log. The facts come from the start of a stand-in
-- (kza.ctl.probe), so the rules are the agent's own.

local files = require("kza.files")
local host = require("kza.host")
local json = require("dkjson")
local options = require("kza.ctl.options")
local records = require("kza.ctl.records")
local service = require("kza.ctl.service")

local settings = {}

local STAND_IN = "kza.ctl.probe"

-- The installed service gets the words of `options` in this file.
local DEFAULTS = "/etc/default/kz_agent"

-- Options that would start, install or place something.
local LEFT_OUT = {
    appname = true, background = true, install_plugins = true, test = true,
    unittest = true, workdir = true,
}

-- The source of the options --------------------------------------------------

local function words_of_defaults()
    local status, output = host.run({ "/bin/sh", "-c", '. "$1" >/dev/null && '
        .. 'for word in $options; do printf "%s\\n" "$word"; done', "sh",
        DEFAULTS })
    local words = {}
    for word in (status == 0 and output or ""):gmatch("[^\n]+") do
        words[#words + 1] = word
    end
    return words
end

--- The options of the running agent, else those of the installed service, else
--- none.
---@param where kza.ctl.Place
---@return string[] words
function settings.options(where)
    local state = service.look(where)
    local process = state and (state.watchdog or state.worker)
    if process and #process.words > 0 then
        return options.of_process(process)
    end
    if where.bin == "/opt/kz_agent" and host.stat(DEFAULTS) then
        return words_of_defaults()
    end
    return {}
end

-- The stand-in ---------------------------------------------------------------

local function words_of_stand_in(where, given, work, result)
    local words = {
        "/bin/sh", "-c", 'cd -- "$1" 2>/dev/null; shift; exec "$@"', "sh",
        where.work, where.agent, "--appname", STAND_IN, "--workdir", work,
    }
    for _, word in ipairs(options.words(given, LEFT_OUT)) do
        words[#words + 1] = word
    end
    for _, word in ipairs({ "--", where.name, result }) do
        words[#words + 1] = word
    end
    return words
end

-- Copies the agent's configuration to the stand-in's directory. A configuration
-- that cannot be read counts as none, as it does for the agent.
local function lend_configuration(where, work)
    local path, copy = where.work .. "/kz_agent.ini", work .. "/kz_agent.ini"
    local stat = host.stat(path)
    local bytes = stat and stat.type == "file" and files.read(path)
    if bytes then
        files.write(copy, bytes)
    else
        os.remove(copy)
    end
end

-- The log records that a start would write, with the agent's names in the place
-- of the stand-in's.
local function read_records(where, work)
    local log = ("%s/log/%s.log"):format(work, STAND_IN)
    local found = {}
    records.backwards(log, function(record)
        local at, last = record.text:find(work, 1, true)
        while at do
            record.text = record.text:sub(1, at - 1) .. where.work
                .. record.text:sub(last + 1)
            at, last = record.text:find(work, at + #where.work, true)
        end
        table.insert(found, 1, record)
    end)
    os.remove(log)
    return found
end

-- The message of a stand-in that ended without a report, without its name.
local function refusal_in(output)
    local lines = {}
    for line in output:gmatch("[^\n]+") do
        if line:sub(1, #STAND_IN + 2) == STAND_IN .. ": " then
            line = line:sub(#STAND_IN + 3)
        end
        lines[#lines + 1] = line
    end
    return #lines > 0 and lines or { "it ends at once" }
end

-- What a refusal tells of the settings: owners are a reason under strict.owner
-- alone.
local function keys_after(refusal)
    for _, text in ipairs(refusal) do
        if text:find("can be changed by others", 1, true) then
            return { ["strict.owner"] = true }
        end
    end
    return {}
end

-- The lines on standard error that are no repeated records of the log.
local function complaints_in(output)
    local complaints = {}
    for line in output:gmatch("[^\n]+") do
        if not records.parse(line) then
            complaints[#complaints + 1] = line
        end
    end
    return complaints
end

--- What a start would find.
---@class kza.ctl.Settings
---@field keys table<string, any>  Keys of the domain that matter here.
---@field module? string           Place of the application's module.
---@field problem? string          The reason why it cannot be loaded.
---@field records kza.ctl.Record[] The start's records in the log.
---@field options kza.startup.Option[]
---@field bad_options? string      The reason why the options are refused.
---@field refusal? string[]        The reason why the start would be refused.
---@field complaints? string[]     The start's lines on standard error.

--- Finds out what a start with these options would find.
---@param where kza.ctl.Place
---@param words string[]
---@return kza.ctl.Settings
function settings.find(where, words)
    local given, message = options.parse(words)
    if not given then
        return { keys = {}, records = {}, options = {}, bad_options = message }
    end
    local work = dom:GetPluginWorkdir("probe")
    local result = work .. "/result.json"
    lend_configuration(where, work)
    os.remove(result)
    local _, output = host.run(words_of_stand_in(where, given, work, result))
    local found = json.decode(files.read(result) or "")
    if found then
        found.complaints = complaints_in(output)
    else
        found = { refusal = refusal_in(output) }
        found.keys = keys_after(found.refusal)
    end
    os.remove(result)
    found.records = read_records(where, work)
    found.options = given
    return found
end

-- Trust ----------------------------------------------------------------------

-- Stands for keys that cannot be used: every signature is refused.
local NoKeys = {}
NoKeys.__index = NoKeys

function NoKeys:signer()
    return nil, "its signature cannot be checked: " .. self.message
end

--- Which packages an agent applies.
---@class kza.ctl.Trust
---@field keys? table         Those that may sign packages; nil when packages
---                           need no signature.
---@field is_strict boolean   What others can change is refused.
---@field message? string     The reason why every signature is refused.
---@field passed_over string[]  About files among the keys.

--- True for the values that switch a setting on.
---@param value any
---@return boolean
function settings.is_on(value)
    return value == "1" or value == "true" or value == true or value == 1
end

--- The trust that settings express.
---@param found kza.ctl.Settings
---@return kza.ctl.Trust
function settings.trust(found)
    local trust = {
        is_strict = settings.is_on(found.keys["strict.owner"]),
        passed_over = {},
    }
    local directory = found.keys["packages.keys"]
    if directory ~= nil then
        trust.keys, trust.message, trust.passed_over =
            host.keys(tostring(directory))
        trust.keys = trust.keys
            or setmetatable({ message = trust.message }, NoKeys)
    end
    return trust
end

--- The trust of an agent, according to its present options.
---@param where kza.ctl.Place
---@return kza.ctl.Trust
function settings.trust_of(where)
    return settings.trust(settings.find(where, settings.options(where)))
end

return settings
