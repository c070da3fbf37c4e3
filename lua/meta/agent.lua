---@meta
-- SPDX-License-Identifier: Apache-2.0
--
-- What the agent gives to Lua, for editors that understand annotations and for
-- the reference that is made from it. Nothing loads this file.

-- The domain -----------------------------------------------------------------

--- The domain: the store of named values that the agent, its configuration and
--- its components share. A value is a string, a boolean or an integer; a key is
--- a string, by custom of words joined by dots.
---
--- Every operation is atomic. Other threads of the agent read and write the
--- same values, so one read may differ from the next.
---@class SLB.Dom
local Dom = {}

--- The value of a key; nil when it is not set.
---@param key kza.Key
---@return string|boolean|integer|nil value
function Dom:Get(key) end

--- Sets a key, for everybody; nil removes it.
---
--- A number must be integral. Whoever waits for the key is woken, also when the
--- value is the same as before. Removing a key that is not set changes nothing.
---@param key kza.Key
---@param value string|boolean|integer|nil
function Dom:Set(key, value) end

--- The names of the keys that are set, sorted by byte.
---@param prefix? string  Only those that begin with it.
---@return string[] keys
function Dom:Keys(prefix) end

--- Waits until somebody sets or removes a key.
---
--- A change between two waits for the same key is not missed: the second one
--- returns at once. The first wait for a key sees changes made from then on.
--- What the script itself sets counts too: whoever resets a key after a wait
--- ends the next wait.
---
--- The agent remembers each key that was ever waited for; wait for a few fixed
--- keys, not for one made up for each question.
---@param key kza.Key      Need not be set.
---@param ms number        Longest wait in milliseconds; `math.huge` for ever.
---@return boolean changed
--- False after the time. In the background also from a stop request on, which
--- cuts one wait of `main` short, until `shutdown` begins: `dom:Sleep(0)` tells
--- one from the other. A change that is not reported for this reason is
--- reported to the first wait for the key in `shutdown`.
function Dom:Wait(key, ms) end

--- Sleeps.
---@param ms number        Milliseconds; 0 only asks whether to stop.
---@return boolean slept
--- False when cut short. In the background a stop request cuts the sleep or
--- wait that `main` is in short, else the next one, once. Later ones last their
--- time, and all of them answer false until `shutdown` begins.
function Dom:Sleep(ms) end

--- The directory in which a plugin keeps its files, below the working
--- directory. It exists afterwards, for the agent's user alone (mode 0700).
---@param plugin string    The plugin's name, without "/".
---@return string? path
---@return string? message  Why there is none.
function Dom:GetPluginWorkdir(plugin) end

--- Writes a record to the agent's log.
---@param level kza.LogLevel
---@param text string
function Dom:Log(level, text) end

--- Writes a trace record with the place of the call, when tracing is on for the
--- component.
---@param component string
---@param text string
function Dom:Trace(component, text) end

--- Whether tracing is on for a component. Ask before building a costly text.
---@param component string
---@return boolean enabled
function Dom:TraceIsEnabled(component) end

--- Stores an event for the agent to report; its time is now. The event survives
--- a power cut once the call returns.
---@param event kza.NewEvent
---@return integer id       0 when the event is only in the log.
function Dom:AgentEventWrite(event) end

--- Stored events, oldest first.
---@param after_id? integer  Only events with a greater id.
---@param limit? integer     At most so many.
---@return kza.Event[]? events
---@return string? message   Why they cannot be read.
function Dom:AgentEvents(after_id, limit) end

--- The bytes of a data file that belongs to the modules: the first of that name
--- beside those of `--lua_path`, in the directories in front of each entry's
--- first `?`, else the first entry of exactly that name in the archives of
--- `app.lua.zippath`.
---@param name string
--- For example "templates/mail.txt". One that is absolute or has a part `..` is
--- not found.
---@return string? bytes
---@return string? message  Why there are none, with every place looked in.
function Dom:ReadArchive(name) end

---@alias kza.LogLevel
---| "error"    # something failed that should not
---| "warning"  # something is wrong, and the agent goes on
---| "message"  # what an operator should see
---| "info"     # the normal course of things
---| "verbose"  # more of it
---| "debug"    # for whoever works on the code

--- An event to be stored.
---@class kza.NewEvent
---@field text string       What happened.
---@field number integer    Which kind of event; numbers are the application's.
---@field severity integer  A level of the log: 2 is a warning, 5 information.

--- A stored event.
---@class kza.Event
---@field id integer        Its number in the store, greater than those before.
---@field number integer    Which kind of event.
---@field severity integer  A level of the log: 2 is a warning, 5 information.
---@field time integer      When, in seconds since 1970.
---@field time_ms integer   The same in milliseconds.
---@field text string       What happened.

-- Keys -----------------------------------------------------------------------

--- Keys that the agent sets or reads. An application uses any others it likes.
---@alias kza.Key
---| string
---| "app.path.exe"        # string: path of the executable
---| "app.path.bin"        # string: directory of the executable
---| "app.path.lib"        # string: directory of the agent's libraries
---| "app.path.ov"         # string: the maker's directory above the executable
---| "app.path.work"       # string: working directory (`--workdir`)
---| "app.path.ini"        # string: path of this instance's configuration file
---| "app.path.ini.global" # string: path of the host's configuration file
---| "app.name"            # string: the application's name (`--appname`)
---| "app.version"         # string: the agent's version, four numbers
---| "app.background"      # boolean: true in background mode, else unset
---| "app.plugins"         # string: the list given with `--plugins`
---| "app.mode.unittest"   # boolean: true while tests run, else unset
---| "app.fipsmode"        # string: the configuration's entry "FIPSMode"
---| "app.fulldump"        # boolean: whether crash dumps hold all memory
---| "app.lua.path"        # string: the list given with `--lua_path`
---| "app.lua.cpath"       # string: the list given with `--lua_cpath`
---| "app.lua.zippath"     # string: archives searched, joined by ";"
---| "app.trace"           # string: components to trace (`--trace`)
---| "app.trace+"          # string: more of them, from the configuration
---| "kza.HeartbeatNow"    # boolean: set it to ask for a heartbeat at once
---| "packages.keys"       # string: directory of the keys that may sign packages
---| "log.maxsize"         # integer: bytes of the log before it rotates
---| "log.keep"            # integer: older logs that are kept
---| "log.console"         # string: level of the records shown on standard error; booleans: all, none
---| "control.socket"      # boolean: answer operators through a socket, from the start on

-- Globals --------------------------------------------------------------------

--- The agent's domain.
---@type SLB.Dom
dom = dom

--- The same object as `dom`.
---@type SLB.Dom
dom0 = dom0

--- The words after "--" on the command line, from 1 on. `arg[0]` is the
--- application's name; options have negative indices.
---@type table<integer, string>
arg = arg

--- The application's module, once it has been loaded.
---@type table
kzaAppModule = kzaAppModule
