-- SPDX-License-Identifier: Apache-2.0
--
-- Projects of a test's own, and kzrun for them.

local lu = require("luaunit")
local support = require("support")

local projects = {}

local quote = support.quote

--- A project in a new directory, with these files, {name = text}. It is called
--- "demo" unless it is given a name.
function projects.new(files, name)
    local dir = support.directory() .. "/" .. (name or "demo")
    support.shell("mkdir -p " .. quote(dir))
    for path, text in pairs(files) do
        support.write(dir .. "/" .. path, text)
    end
    return dir
end

--- Runs kzrun with these words to its end; `before` is a command of the shell
--- in front of it. The result is that of support.run.
function projects.kzrun(words, before)
    local quoted = {}
    for i, word in ipairs(words) do
        quoted[i] = quote(word)
    end
    return support.run(("%s timeout -s KILL 120 %s/kzrun %s"):format(
        before or "", quote(support.stage), table.concat(quoted, " ")))
end

--- As projects.kzrun, for a run that must succeed.
function projects.run(words, before)
    local result = projects.kzrun(words, before)
    lu.assertEquals(result.status, 0, result.out .. result.err)
    return result
end

return projects
