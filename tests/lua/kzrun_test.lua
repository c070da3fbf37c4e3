-- SPDX-License-Identifier: Apache-2.0
--
-- kzrun, as an author uses it: each test has a project of its own.

local lu = require("luaunit")
local projects = require("projects")
local support = require("support")

local kzrun, project, run = projects.kzrun, projects.new, projects.run
local quote = support.quote

-- An application that shows what it was given.
local SHOW = [[
return { main = function()
    print(dom:Get("app.name"), table.concat(arg, ","))
end }
]]

TestRun = {}

function TestRun:test_the_application_is_named_like_the_directory()
    local dir = project({ ["src/demo.lua"] = SHOW })
    lu.assertEquals(run({ dir, "--", "a", "--watch", "--" }).out,
        "demo\ta,--watch,--\n")
    lu.assertEquals(run({ dir .. "/" }).out, "demo\t\n")
    lu.assertEquals(run({ "." }, "cd " .. quote(dir) .. " &&").out, "demo\t\n")
end

function TestRun:test_another_module_is_named()
    local dir = project({ ["src/tools/other/init.lua"] = SHOW })
    lu.assertEquals(run({ "--app", "tools.other", dir }).out,
        "tools.other\t\n")
    lu.assertEquals(run({ dir, "--app=tools.other" }).out, "tools.other\t\n")
end

function TestRun:test_directories_with_odd_names()
    for _, name in ipairs({ "two words", "it's", "$HOME", "back\\slash", "new",
        "50%", "\\%", '"', "@", "-" }) do
        local dir = project({ ["src/a.lua"] = [[
            return { main = function() print(dom:Get("app.path.work")) end }
        ]] }, name)
        local result = run({ "./" .. name, "--app", "a" },
            ("cd %s/.. &&"):format(quote(dir)))
        lu.assertEquals(result.out, dir .. "/.kz\n")
    end
end

function TestRun:test_modules_data_and_c_modules_are_found()
    local dir = project({
        ["src/demo.lua"] = [[
            local text = require("demo.text")
            return { main = function()
                print(text, dom:ReadArchive("words/a.txt"))
                print(package.searchpath("c.module", package.cpath))
            end }]],
        ["src/demo/text.lua"] = "return 'text'",
        ["data/words/a.txt"] = "data",
        ["lib/c/module.so"] = "",
    })
    lu.assertEquals(run({ dir }).out,
        ("text\tdata\n%s/lib/c/module.so\n"):format(dir))
end

function TestRun:test_status_is_the_applications()
    local dir = project({
        ["src/demo.lua"] = "return { main = function() return 7 end }" })
    lu.assertEquals(kzrun({ dir }).status, 7)
end

function TestRun:test_application_that_a_signal_ends()
    local dir = project({ ["src/demo.lua"] = [[
        return { main = function()
            os.execute("kill -KILL $PPID")
            dom:Sleep(60000)
        end }]] })
    lu.assertEquals(kzrun({ dir }).status, 128 + 9)
end

function TestRun:test_standard_streams_are_the_applications()
    local dir = project({ ["src/demo.lua"] = [[
        return { main = function() print(io.read("*l")) end }]] })
    lu.assertEquals(run({ dir }, "echo line |").out, "line\n")
end

function TestRun:test_settings_are_read_at_each_start()
    local dir = project({
        ["src/demo.lua"] = [[
            return { main = function() print(dom:Get("demo.key")) end }]],
    })
    lu.assertEquals(run({ dir }).out, "nil\n")
    for _, value in ipairs({ "one", "two" }) do
        support.write(dir .. "/kz_agent.ini",
            "DumpLevel=0\n[domain]\ndemo.key=" .. value)
        lu.assertEquals(run({ dir }).out, value .. "\n")
    end
    os.remove(dir .. "/kz_agent.ini")
    lu.assertEquals(run({ dir }).out, "nil\n")
end

function TestRun:test_work_directory_is_not_packed()
    local dir = project({ ["src/demo.lua"] = SHOW })
    run({ dir })
    lu.assertEquals(support.run("ls -A " .. quote(dir)).out, ".kz\nsrc\n")
    local archive = support.directory() .. "/a.kze"
    local packed = support.run(("%s/kzpack archive %s %s"):format(
        quote(support.stage), quote(archive), quote(dir)))
    lu.assertStrContains(packed.out, "1 entries")
end

TestUsage = {}

local function assert_refused(status, message, words)
    local result = kzrun(words)
    lu.assertEquals(result.err, "kzrun: " .. message .. "\n")
    lu.assertEquals(result.status, status)
    lu.assertEquals(result.out, "")
end

function TestUsage:test_wrong_words()
    local dir = project({ ["src/demo.lua"] = SHOW })
    for _, case in ipairs({
        { {}, "a directory is needed" },
        { { dir, "fly" }, "there is no command 'fly'" },
        { { dir, "run", "more" }, "'run' does not take 'more'" },
        { { dir, "--fly" }, "unknown option '--fly'" },
        { { dir, "--app" }, "option '--app' requires an argument" },
        { { dir, "--watch=1" }, "option '--watch' does not take arguments" },
    }) do
        assert_refused(2, case[2] .. "; kzrun --help tells more", case[1])
    end
end

function TestUsage:test_what_is_not_there()
    local dir = project({ ["src/demo.lua"] = SHOW })
    assert_refused(1, dir .. "/none: No such file or directory",
        { dir .. "/none" })
    assert_refused(1, dir .. "/src/demo.lua: not a directory",
        { dir .. "/src/demo.lua" })
    assert_refused(1, ("there is no module 'other' in %s/src; --app names "
        .. "another"):format(dir), { dir, "--app", "other" })
end

function TestUsage:test_path_that_no_path_list_can_hold()
    local dir = project({ ["src/a;b.lua"] = SHOW }, "a;b")
    assert_refused(1, dir .. ": no module is found below a directory with ';' "
        .. "in its path", { dir })
end

function TestUsage:test_help()
    lu.assertStrContains(run({ "--help" }).out, "Usage: kzrun ")
    lu.assertStrContains(run({ "nowhere", "run", "-h" }).out,
        "Runs the application")
end
