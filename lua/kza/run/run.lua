-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR: runs the application in the foreground.

local agent = require("kza.run.agent")
local project = require("kza.run.project")
local supervise = require("kza.run.supervise")

local function run(line)
    local function prepare()
        local found = project.find(line.dir, line.app)
        agent.prepare(found)
        return agent.command(found, line.words)
    end
    local command = prepare()
    if line.watch then
        supervise.watch(project.find(line.dir, line.app), prepare)
        return 0
    end
    return supervise.status(supervise.run(command))
end

return {
    usage = "DIR [-- WORD...]",
    summary = "runs the application",
    description = [[
Runs the application of the project in DIR in the foreground, until it ends or
Ctrl-C ends it. The words after "--" are its own, in the table 'arg'. Its log is
in DIR/.kz/log and, from 'info' on, on standard error. The status is that of the
application, 0 after Ctrl-C.]],
    options = { "app", "watch" },
    takes_words = true,
    run = run,
}
