-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun DIR profile: samples the call stack of the application.

local agent = require("kza.run.agent")
local complain = require("kza.run.complain")
local fail = require("kza.ctl.fail")
local files = require("kza.files")
local flame_graph = require("kza.run.flame_graph")
local project = require("kza.run.project")
local samples = require("kza.run.samples")
local speedscope = require("kza.run.speedscope")
local supervise = require("kza.run.supervise")

local function write(found, name, text)
    local written, message = files.write(files.join(found.dir, name), text)
    if not written then
        fail("%s", message)
    end
end

local function report(found, path)
    local profile, message = samples.read(path, found.dir)
    if not profile then
        fail("there is no profile: %s", message)
    end
    write(found, "profile.speedscope.json",
        speedscope.json(profile, found.name))
    write(found, "profile.folded", speedscope.folded(profile))
    write(found, "profile.svg", flame_graph(profile, found.name))
    complain("%.0f ms of CPU time in %d samples: see profile.svg in %s",
        profile.ms, #profile.samples, found.dir)
end

local function run(line)
    local found = project.find(line.dir, line.app)
    local plan = { samples = found.work .. "/profile/samples" }
    agent.prepare(found)
    local first = agent.begin_with(found, "profile", plan)
    os.remove(plan.samples)
    local ended = supervise.run(
        agent.command(found, line.words, nil, first), line.seconds)
    report(found, plan.samples)
    return supervise.status(ended)
end

return {
    usage = "DIR profile [-- WORD...]",
    summary = "shows where the application spends CPU time",
    description = [[
Runs the application as kzrun DIR does, and samples its Lua call stack until it
ends, Ctrl-C ends it, or the time is up. Writes DIR/profile.svg, a flame graph
for a browser, DIR/profile.speedscope.json and DIR/profile.folded. Times are
milliseconds of CPU time.]],
    options = { "app", "seconds" },
    takes_words = true,
    run = run,
}
