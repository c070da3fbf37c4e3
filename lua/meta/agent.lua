---@meta
-- SPDX-License-Identifier: Apache-2.0
--
-- The objects that the agent gives to Lua, for editors that understand
-- annotations and for the reference that is made from them. The agent does not
-- load this file.

-- The domain -----------------------------------------------------------------

--- The domain: the store of named values that the agent, its configuration and
--- its components share. A value is a string, a boolean or an integer; a key is
--- a string, by convention words joined by dots.
---
--- Every operation is atomic. Other threads of the agent read and write the
--- same values, so one read may differ from the next.
---@class SLB.Dom
local Dom = {}

--- The value of a key; nil when it is not set.
---@param key kza.Key
---@return string|boolean|integer|nil value
function Dom:Get(key) end

--- Sets a key for all threads of the agent; nil removes it.
---
--- A number must be integral. Threads that wait for the key are woken, also
--- when the value is the same as before. Removing a key that is not set changes
--- nothing.
---@param key kza.Key
---@param value string|boolean|integer|nil
function Dom:Set(key, value) end

--- The names of the keys that are set, sorted by byte.
---@param prefix? string  Only the names that begin with it.
---@return string[] keys
function Dom:Keys(prefix) end

--- Waits until a key is set or removed.
---
--- A change between two waits for the same key is not missed: the second wait
--- returns at once. The first wait for a key sees changes made from then on.
--- Changes by the script itself count too: a script that resets a key after a
--- wait ends its next wait.
---
--- The agent keeps each key that was ever waited for in memory; wait for a few
--- fixed keys, not for a new one each time.
---@param key kza.Key      Need not be set.
---@param ms number        Longest wait in milliseconds; `math.huge` for ever.
---@return boolean changed
--- False after the time. In background mode also from a stop request on, which
--- cuts one wait of `main` short, until `shutdown` begins: `dom:Sleep(0)` tells
--- the two cases apart. A change that is not reported for this reason is
--- reported to the first wait for the key in `shutdown`.
function Dom:Wait(key, ms) end

--- Sleeps.
---@param ms number        Milliseconds; 0 only asks whether to stop.
---@return boolean slept
--- False when cut short. In background mode a stop request cuts the sleep or
--- wait that `main` is in short, else the next one, once. Later ones last their
--- time, and all of them return false until `shutdown` begins.
function Dom:Sleep(ms) end

--- The directory in which a plugin keeps its files, below the working
--- directory. It exists afterwards, for the agent's user alone (mode 0700).
---@param plugin string    The plugin's name, without "/".
---@return string? path
---@return string? message  The reason when there is none.
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
---@return string? message   The reason when they cannot be read.
function Dom:AgentEvents(after_id, limit) end

--- The bytes of a data file that belongs to the modules: the first file of that
--- name beside the modules of `--lua_path`, in the directories in front of each
--- entry's first `?`, else the first entry of exactly that name in the archives
--- of `app.lua.zippath`.
---@param name string
--- For example "templates/mail.txt". A name that is absolute or has a part `..`
--- is not found.
---@return string? bytes
---@return string? message  The reason when there are none, with all places.
function Dom:ReadArchive(name) end

---@alias kza.LogLevel
---| "error"    # a failure
---| "warning"  # a problem in spite of which the agent goes on
---| "message"  # a fact that an operator should see
---| "info"     # the normal course of events
---| "verbose"  # more details of it
---| "debug"    # for work on the code

--- An event to be stored.
---@class kza.NewEvent
---@field text string       Description.
---@field number integer    Kind of event; the application chooses the numbers.
---@field severity integer  A level of the log: 2 is a warning, 5 information.

--- A stored event.
---@class kza.Event
---@field id integer        Number in the store, greater than those before.
---@field number integer    Kind of event.
---@field severity integer  A level of the log: 2 is a warning, 5 information.
---@field time integer      Seconds since 1970.
---@field time_ms integer   The same in milliseconds.
---@field text string       Description.

-- Keys -----------------------------------------------------------------------

--- Keys that the agent sets or reads. An application may use any other keys.
---@alias kza.Key
---| string
---| "app.path.exe"        # string: path of the executable
---| "app.path.bin"        # string: directory of the executable
---| "app.path.lib"        # string: directory of the agent's libraries
---| "app.path.ov"         # string: the vendor's directory above the executable
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
---| "app.trace+"          # string: further components, from the configuration
---| "kza.HeartbeatNow"    # boolean: set it to ask for a heartbeat at once
---| "packages.keys"       # string: directory of the keys that may sign packages
---| "strict.owner"        # boolean: what others can change is refused, not only warned of
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
