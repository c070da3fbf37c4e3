---@meta
-- SPDX-License-Identifier: Apache-2.0
--
-- The module kza.host, which is built into the agent. The agent does not load
-- this file.

--- Functions that Lua's own libraries lack: `require("kza.host")`.
---@class kza.host
local host = {}

--- The properties of a file.
---@class kza.host.Stat
---@field type "file"|"directory"|"link"|"other"
---@field size number      Bytes.
---@field mode integer     Permission bits.
---@field user integer     Id of the owner.
---@field group integer    Id of the group.
---@field modified number  Last change of the content, seconds since the epoch, with a fraction.
---@field changed number   Last change of content, name, owner or permissions.
---@field device number    With `inode`, the identity of the file.
---@field inode number

--- The names in a directory, sorted by byte, without "." and "..".
---@param path string
---@return string[]? names
---@return string? message
function host.list(path) end

--- The properties of the file at a path.
---@param path string
---@param nofollow? boolean  Describe a symbolic link itself.
---@return kza.host.Stat? stat
---@return string? message
function host.stat(path, nofollow) end

--- Whether this process may read or write a file or directory.
---@param path string
---@param what "read"|"write"
---@return true? granted
---@return string? message
function host.access(path, what) end

--- Puts a file with these bytes in the place of a path, so that a reader finds
--- either the old content or the new, whole. The bytes are first written to a
--- new file in the same directory, under a random name. A symbolic link at the
--- path is replaced itself.
---@param path string
---@param bytes string
---@return true? written
---@return string? message
function host.write(path, bytes) end

--- What of a path others can change, the file or directory that it leads to and
--- those that hold it: each as the agent says it in its log, none when only root
--- and the user of this process can.
---@param path string
---@return string[] texts
function host.changeable(path) end

--- Makes a file with these bytes, of the mode 0644, or 0600 when it is private,
--- whatever the umask. Nothing is left of a file that cannot be written whole.
---@param path string  Must not exist.
---@param bytes string
---@param private? boolean
---@return true? written
---@return string? message
function host.write_new(path, bytes, private) end

--- Puts the bytes of a file into a new one, of the mode 0644, and waits until
--- they are on disk. Nothing is left of a copy that fails.
---@param from string  A regular file.
---@param to string    Must not exist.
---@return true? copied
---@return string? message
function host.copy(from, to) end

--- Makes a directory; the one above it must exist.
---@param path string
---@param shared? boolean  As the umask has it, and not for its owner alone.
---@return true? made
---@return string? message
function host.make_directory(path, shared) end

--- The checksum that zip archives use.
---@param bytes string
---@param before? integer  That of the bytes before these.
---@return integer crc
function host.crc32(bytes, before) end

--- The raw deflate stream of some bytes, the same for the same bytes.
---@param bytes string
---@return string packed
function host.deflate(bytes) end

--- An entry of a zip archive.
---@class kza.host.Entry
---@field name string
---@field size number       Bytes once unpacked.
---@field mode integer      Permission bits, 0 when there are none.
---@field crc integer      Checksum of the bytes, see host.crc32.
---@field problem? string   The reason why the entry cannot be read.

--- The entries of a zip archive, in its order.
---@param path string
---@param read? boolean     Read the content of each entry, to find damage.
---@return kza.host.Entry[]? entries
---@return string? message
function host.entries(path, read) end

--- Whether the agent would unpack a package into a directory. Changes nothing
--- on disk.
---@param path string
---@param directory string
---@param names_only? boolean  Check only the names of the entries, as for a
---                            removal package.
---@return true? accepted
---@return string? message
function host.check_package(path, directory, names_only) end

--- The public keys by which packages may be signed.
---@class kza.host.Keys
---@field signer function  `signer(package)`: the name of the key that signed the package, or nil and the reason why its signature is refused.

--- Reads the keys in a directory, as the agent does with the directory in the
--- setting `packages.keys`.
---@param directory string  An absolute path.
---@return kza.host.Keys? keys
---@return string? message
---@return string[] passed_over  About each `*.pem` that cannot be used.
function host.keys(directory) end

--- Makes a key by which packages can be signed: ECDSA on the curve P-256.
---@return string? private  PEM: PKCS#8, without a password.
---@return string public_or_message  PEM.
function host.new_key() end

--- Signs a file, as `openssl dgst -sha256 -sign` does.
---@param path string
---@param private string  A private key in PEM, without a password, of a kind by which packages may be signed.
---@return string? signature
---@return string? message
function host.sign(path, private) end

--- Whether a descriptor is a terminal.
---@param descriptor integer  0 is standard input, 1 standard output.
---@return boolean
function host.isatty(descriptor) end

--- Facts about a process. An optional field is nil where the system does not
--- give its fact.
---@class kza.host.Process
---@field pid integer
---@field parent integer
---@field name string         Of its program, perhaps cut short.
---@field executable? string  Path.
---@field state string        "Z" for a zombie, "?" when unknown.
---@field started number      Seconds since the epoch.
---@field cpu_s number        Seconds of CPU time of all its threads.
---@field rss_kib? integer    Memory in use.
---@field threads? integer    Number of threads.
---@field directory? string   The current directory.
---@field words string[]      Of its command line; empty where not given.

--- Facts about a process; nil when there is no such process.
---@param pid integer
---@return kza.host.Process? process
function host.process(pid) end

--- The ids of a process's children, in no order.
---@param pid integer
---@return integer[] pids
function host.children(pid) end

--- The ids of the processes that run an executable, also when its file has been
--- replaced since; in no order. Files count, not paths: a process in a container
--- may run another one of the same path.
---@param executable string  Absolute path without symbolic links.
---@param directory? string  Only those whose current directory this is.
---@return integer[] pids
function host.processes(executable, directory) end

--- The path, absolute and without symbolic links.
---@param path string
---@return string? path
---@return string? message
function host.real_path(path) end

--- Versions of the libraries that this process runs with.
---@return { wxwidgets: string, lua: string, openssl: string, sqlite: string }
function host.versions() end

--- Sends a signal. "NONE" only checks whether a signal can be sent.
---@param pid integer
---@param signal "TERM"|"KILL"|"INT"|"NONE"
---@return true? sent
---@return string? message
function host.kill(pid, signal) end

--- Runs a program to its end, without a shell. Returns its exit status, or 128
--- plus the number of the signal that killed it, and its output.
---@param words string[]  The program's path, then its arguments.
---@return integer? status
---@return string output_or_message
function host.run(words) end

--- The seconds of a clock that is never set back.
---@return number
function host.clock() end

--- The id of the user that this process acts as.
---@return integer
function host.user() end

--- Characters in a line of a terminal; nil when there is none.
---@param descriptor? integer  1, standard output, unless given.
---@return integer? columns
function host.columns(descriptor) end

--- The agent events in a database, oldest first. Makes no file.
---@param path string
---@param after? integer  Only events with a greater id.
---@param last? integer   Of these only the last ones, this many.
---@return kza.Event[]? events
---@return string? message
function host.events(path, after, last) end

--- The text of an error value and a traceback, as in the agent's own reports: a
--- table is shown by its fields, and for a missing method a similar name is
--- added. A message handler for `xpcall`.
---@param value any
---@return string report
function host.error_report(value) end

--- A connection to a socket. Each call waits for at most the given time, 5
--- seconds by default.
---@class kza.host.Connection
---@field send function   `send(bytes [, seconds])`: true, or nil and the reason.
---@field line function   `line([seconds])`: the next line without its line break, or nil and "timeout", "closed" or the system's text. Bytes that came before a time-out are kept for the next call.
---@field close function  `close()`.

--- Connects to a socket of the Unix domain.
---@param path string
---@param seconds? number
---@return kza.host.Connection? connection
---@return string? message
function host.connect(path, seconds) end

--- Starts a program in the foreground, beside this one: with its standard
--- streams, in its process group. It ends with SIGINT when this process ends,
--- where the system offers that. Its end is to be waited for.
---@param words string[]  The program's path, then its arguments.
---@return integer? pid
---@return string? message
function host.start(words) end

--- From now on SIGINT, SIGTERM and SIGHUP do not end this process: host.await
--- tells of them. For tools that the agent runs, not for services.
---@return true? taken
---@return string? message
function host.take_signals() end

--- Sleeps until something happens, and tells what came first: "ended" and the
--- program's exit status, or nil and the signal that killed it; "signal", its
--- name, and whether the system sent it, as at Ctrl-C; "changed"; or "timeout".
--- Takes signals as host.take_signals does.
---@param seconds number   Longest wait; `math.huge` for ever.
---@param pid? integer     A program from host.start.
---@param watch? kza.host.Watch
---@return "ended"|"signal"|"changed"|"timeout" event
---@return integer|string|nil value
---@return integer|boolean|nil more
function host.await(seconds, pid, watch) end

--- Notes of the system that something in a directory has changed.
---@class kza.host.Watch
---@field add function  `add(directory)`: true, or nil and why not. What lies in directories below is not watched.

--- A watch that has no directory yet; nil where the system has none.
---@return kza.host.Watch? watch
---@return string? message
function host.watch() end

return host
