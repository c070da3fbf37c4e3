-- SPDX-License-Identifier: Apache-2.0
--
-- Follows a page of documentation word for word, as a reader would.
--
-- A block marked "lua" whose first line is a comment with a path is a file to
-- write; a block marked "console" holds commands after "$ " and what they
-- print. Three dots stand for any text. Blocks of other marks, and without one,
-- are not run. The page runs in one shell, from the clone on, with a home
-- directory and a /var/run of its own. A page for operators finds the agent
-- installed in /opt/kz_agent besides, and nothing in /var/opt and /srv.

local support = require("support")

-- A command that only looks is run again until it prints what the page shows:
-- the agent beside it may not have got that far.
local LOOKING = { "^tail ", "^cat ", "^ls ", "^grep ", "^echo '",
    "kzctl status", "kzctl log", "kzctl get" }

-- How often, a tenth of a second apart.
local TRIES = 600

local quote = support.quote

local function is_looking(command)
    for _, pattern in ipairs(LOOKING) do
        if command:find(pattern) then
            return true
        end
    end
    return false
end

-- Reading the page -----------------------------------------------------------

-- Splits the lines of a console block into commands with their output.
local function add_commands(steps, block)
    for i, line in ipairs(block.lines) do
        local command = line:match("^%$ (.*)$")
        if command then
            steps[#steps + 1] = {
                line = block.first + i, command = command, output = {},
            }
        else
            table.insert(steps[#steps].output, line)
        end
    end
end

local function add_block(steps, block)
    if block.language == "console" then
        add_commands(steps, block)
    elseif block.language == "lua" then
        local path = block.lines[1]:match("^%-%- (%S+%.lua)$")
        if path then
            steps[#steps + 1] = {
                line = block.first, path = path,
                text = table.concat(block.lines, "\n") .. "\n",
            }
        end
    end
end

local function read_steps(path)
    local steps, block, number = {}, nil, 0
    for line in io.lines(path) do
        number = number + 1
        local fence = line:match("^```(.*)$")
        if fence and not block then
            block = { language = fence, first = number, lines = {} }
        elseif fence then
            add_block(steps, block)
            block = nil
        elseif block then
            table.insert(block.lines, line)
        end
    end
    return steps
end

-- Making the script ----------------------------------------------------------

local PRELUDE = [=[
mount -t tmpfs -o mode=755 tmpfs /var/run || exit 99
# A service is in a session of its own.
end() {
    own=$(ps -o sid= -p $$)
    for file in /var/run/*.pid; do
        [ -f "$file" ] || continue
        session=$(ps -o sid= -p "$(cat "$file")")
        [ "$session" ] && [ $session -ne $own ] &&
            kill -KILL $(ps -o pid= -s $session)
    done
}
trap end EXIT
failed() {
    printf '%s\n--- printed:\n%s\n--- expected:\n%s\n' "$1" "$got" "$2"
    exit 1
}
status=0
]=]

-- What an operator finds.
local INSTALLED = [=[
for place in /opt /var/opt /srv; do
    mount -t tmpfs -o mode=755 tmpfs $place || exit 99
done
mkdir /opt/kz_agent
mount --bind build/stage /opt/kz_agent || exit 99
PATH=/opt/kz_agent:$PATH
]=]

-- One command. `$?` of the command before is kept for it.
local STEP = [=[
tries=%d
while :; do
    out=$outputs/%d
    { (exit $status)
%s
    } >"$out" 2>&1
    status=$?
    got=$(cat "$out")
    case $got in
    %s) break ;;
    esac
    [ $tries -gt 0 ] || failed %s %s
    tries=$((tries - 1))
    sleep 0.1
done
]=]

-- What a command printed, as a pattern of the shell.
local function shell_pattern(text)
    local pattern = quote(text):gsub("%.%.%.", "'*'")
    return pattern
end

local function script_of(steps, page, is_installed)
    local parts = { PRELUDE, is_installed and INSTALLED or "" }
    for i, step in ipairs(steps) do
        local place = ("%s:%d"):format(page, step.line)
        if step.path then
            parts[#parts + 1] = ("mkdir -p %s\ncat >%s <<'END OF FILE'\n"
                .. "%sEND OF FILE\n"):format(
                quote(step.path:match("^(.*)/") or "."), quote(step.path),
                step.text)
        else
            local output = table.concat(step.output, "\n"):gsub("%s+$", "")
            parts[#parts + 1] = STEP:format(
                is_looking(step.command) and TRIES or 0, i, step.command,
                shell_pattern(output),
                quote(place .. ": " .. step.command), quote(output))
        end
    end
    return table.concat(parts)
end

-- Running it -----------------------------------------------------------------

-- A directory that looks like the clone after `./dev build`.
local function make_clone(home)
    local clone = home .. "/clone"
    -- Not what earlier runs left in the stage's working directory.
    support.shell(("mkdir -p %s/build/stage && cd %s && for item in *; do "
        .. "[ $item = work ] || cp -r $item %s/build/stage/ || exit 1; done")
        :format(quote(clone), quote(support.stage), quote(clone)))
    support.shell(("cp %s/.luacheckrc %s/"):format(
        quote(support.source), quote(clone)))
    support.shell(("ln -s %s/examples %s/docs %s/"):format(
        quote(support.source), quote(support.source), quote(clone)))
    support.write(clone .. "/dev", "#!/bin/sh\ntest -x build/stage/kz_agent\n")
    support.shell("chmod +x " .. quote(clone .. "/dev"))
    return clone
end

local function is_root()
    return support.run("id -u").out == "0\n"
end

--- Follows a page. Answers true, or false and what went otherwise than it says.
---@param page string            Its path in the tree.
---@param is_installed? boolean  The agent is installed as on a host.
---@return boolean followed
---@return string report
return function(page, is_installed)
    local steps = read_steps(support.source .. "/" .. page)
    assert(#steps > 0, "nothing to follow in " .. page)
    local home = support.directory()
    local clone = make_clone(home)
    support.shell("mkdir " .. quote(home .. "/outputs"))
    local script = support.write(home .. "/script",
        script_of(steps, page, is_installed))
    local result = support.run(("cd %s && HOME=%s outputs=%s timeout -k 10 250 "
        .. "unshare %s sh %s"):format(quote(clone), quote(home),
        quote(home .. "/outputs"), is_root() and "-m" or "-rm",
        quote(script)))
    return result.status == 0, result.out .. result.err
end
