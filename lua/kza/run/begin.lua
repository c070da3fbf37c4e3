-- SPDX-License-Identifier: Apache-2.0
--
-- What kzrun does in the agent that runs a project, before the application's
-- module is loaded. kzrun writes a module of the application's name that calls
-- this one, and lets the agent find it first.

local STEPS = {
    profile = "kza.run.profile_steps",
    test = "kza.run.test_steps",
}

-- The module itself, as `require` would load it.
local function load_module(name, path)
    local chunk, message = loadfile(path)
    if not chunk then
        error(("error loading module '%s' from file '%s':\n\t%s"):format(
            name, path, message), 0)
    end
    return chunk
end

--- Takes the steps of a command, and answers with the application's module.
---@param command string
---@param plan table       What the command of kzrun has to say to its steps.
---@param path string      Of the module's file.
---@param name string      Of the module.
return function(command, plan, path, name)
    require(STEPS[command])(plan)
    return load_module(name, path)(name, path)
end
