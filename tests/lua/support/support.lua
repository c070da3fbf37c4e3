-- SPDX-License-Identifier: Apache-2.0
--
-- What the tests in Lua share: directories of their own and agents of their
-- own. Everything lies below $KZA_TEST_DIR, which run_script.sh removes.

local support = {}

local test_dir = os.getenv("KZA_TEST_DIR")
local count = 0
local key_count = 0

--- The agent under test and the project's sources.
support.agent = dom:Get("app.path.exe")
support.stage = dom:Get("app.path.bin")
support.source = os.getenv("KZA_SOURCE_DIR")

--- A word as the shell takes it.
function support.quote(word)
    return "'" .. tostring(word):gsub("'", "'\\''") .. "'"
end

--- Runs a shell command that must succeed.
function support.shell(command)
    local ok, how, status = os.execute(command)
    if not ok then
        error(("%s: %s %s"):format(command, how, status), 2)
    end
end

--- A key of the domain that no other test uses.
function support.new_key()
    key_count = key_count + 1
    return "test.key." .. key_count
end

--- The text of the error that a call raises, without its position.
function support.error_of(call, ...)
    local ok, message = pcall(call, ...)
    if ok then
        error("the call raised no error", 2)
    end
    return (message:gsub("^[^:]*:%d+: ", ""))
end

--- A new empty directory.
function support.directory()
    count = count + 1
    local path = ("%s/%d"):format(test_dir, count)
    support.shell("mkdir " .. support.quote(path))
    return path
end

--- Makes a file with its parent directories; answers its path.
function support.write(path, text)
    support.shell("mkdir -p " .. support.quote(path:match("^(.*)/")))
    local file = assert(io.open(path, "wb"))
    assert(file:write(text))
    assert(file:close())
    return path
end

function support.read(path)
    local file = assert(io.open(path, "rb"))
    local text = file:read("*a")
    file:close()
    return text
end

--- Runs a shell command to its end.
---
--- Answers {status=, out=, err=}; status is "signal N" when a signal ended it.
function support.run(command)
    local place = support.directory()
    local _, how, status = os.execute(("(%s) >%s/out 2>%s/err </dev/null")
        :format(command, place, place))
    return {
        status = how == "exit" and status or how .. " " .. status,
        out = support.read(place .. "/out"),
        err = support.read(place .. "/err"),
    }
end

--- Runs an agent to its end with these words, in a working directory of its
--- own; the result is that of `run`. `options.cd` is the current directory,
--- `options.env` goes before the program's name.
function support.run_agent(words, options)
    options = options or {}
    local quoted = {}
    for i, word in ipairs(words) do
        quoted[i] = support.quote(word)
    end
    return support.run(("cd %s && %s timeout -s KILL 120 %s --workdir %s %s")
        :format(
            support.quote(options.cd or test_dir),
            options.env or "",
            support.quote(support.agent),
            support.quote(support.directory()),
            table.concat(quoted, " ")))
end

return support
