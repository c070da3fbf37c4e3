-- SPDX-License-Identifier: Apache-2.0
--
-- kzpack, as an author uses it: each test packs a directory of its own, and
-- where it matters an agent then uses what came out.

local lu = require("luaunit")
local kza_host = require("kza.host")
local support = require("support")

local quote = support.quote

-- A directory with these files, {name = text}.
local function tree(files)
    local place = support.directory()
    for name, text in pairs(files) do
        support.write(place .. "/" .. name, text)
    end
    return place
end

-- Runs the launcher of the stage, which works wherever it is called from.
local function kzpack(...)
    local words = {}
    for i, word in ipairs({ ... }) do
        words[i] = quote(word)
    end
    return support.run(
        quote(support.stage .. "/kzpack") .. " " .. table.concat(words, " "))
end

local function pack(...)
    local result = kzpack(...)
    lu.assertEquals(result.status, 0, result.err)
    lu.assertEquals(result.err, "")
    return result
end

-- Runs the application `widget` out of an archive.
local function run_widget(archive)
    return support.run_agent({ "--appname", "widget", "--zippath", archive })
end

-- A command that must fail with this message and leave `output` alone.
local function assert_fails(message, output, ...)
    local result = kzpack(...)
    lu.assertEquals(result.status, 1, result.out)
    lu.assertStrContains(result.err, "kzpack: " .. message .. "\n")
    lu.assertEquals(result.out, "")
    lu.assertNil(io.open(output), output)
end

local function names_in(path)
    local names = {}
    for name in pack("list", path).out:gmatch("%d+ +%d+  ([^\n]*)\n") do
        names[#names + 1] = name
    end
    return table.concat(names, " ")
end

-- A directory in which the agent runs as if it were installed there.
local function installation()
    local place = support.directory()
    support.shell(("ln -s %s/kz_agent %s/kza_core %s/"):format(
        quote(support.stage), quote(support.stage), quote(place)))
    return place
end

local function run_installed(place, words)
    return support.run(("timeout -s KILL 60 %s/kz_agent %s"):format(
        quote(place), words))
end

TestArchive = {}

function TestArchive.test_holds_the_files_of_its_inputs_sorted_by_byte()
    local place = tree({
        ["b.lua"] = "return 1", ["C.lua"] = "return 1", ["a/z.lua"] = "",
        ["a-b/data.txt"] = "x", ["ä.txt"] = "", [".hidden"] = "",
        ["a/.git/config"] = "",
    })
    local more = tree({ ["one.lua"] = "return 2" })
    local out = support.directory() .. "/w.kze"
    local result = pack("archive", out, place, more .. "/one.lua")
    lu.assertEquals(
        names_in(out), "C.lua a-b/data.txt a/z.lua b.lua one.lua ä.txt")
    lu.assertStrMatches(result.out, ".*/w.kze: 6 entries, %d+ bytes\n")
end

function TestArchive.test_has_a_version_file_that_the_agent_accepts()
    local place = tree({ ["widget.lua"] = [[
        local _, place = ...
        return { main = function() print("from " .. place) end }
    ]] })
    local out = support.directory()
    pack("archive", out .. "/w.kze", place)
    lu.assertEquals(support.read(out .. "/w.kze.version"),
        "version: 12.0.0-2932\n")
    local result = support.run_agent({
        "--appname", "widget", "--extdir", out })
    lu.assertEquals(result.status, 0, result.err)
    lu.assertEquals(result.out, ("from %s/w.kze/widget.lua\n"):format(out))

    pack("archive", "--build", "7", out .. "/w.kze", place)
    lu.assertEquals(support.read(out .. "/w.kze.version"),
        "version: 12.0.0-7\n")
end

function TestArchive.test_same_input_gives_the_same_bytes()
    local files = { ["x.lua"] = "return 1", ["d/y.lua"] = ("a = 1\n"):rep(99),
        ["run.sh"] = "echo", ["empty"] = "" }
    local one, two = tree(files), tree(files)
    support.shell(("chmod 755 %s/run.sh && chmod 700 %s/run.sh"):format(
        quote(one), quote(two)))
    support.shell(("touch -d 2001-02-03 %s/x.lua; chmod 600 %s/x.lua"):format(
        quote(two), quote(two)))
    for _, option in ipairs({ "--build=1", "--compile", "--strip" }) do
        local a = support.directory() .. "/w.kze"
        local b = support.directory() .. "/w.kze"
        local words = option == "--build=1" and { "-b", "1" } or { option }
        words[#words + 1] = "archive"
        local function make(out, from)
            local all = { table.unpack(words) }
            all[#all + 1], all[#all + 2] = out, from
            pack(table.unpack(all))
        end
        make(a, one)
        make(b, two)
        lu.assertTrue(support.read(a) == support.read(b), option)
    end
end

function TestArchive.test_keeps_what_may_be_executed()
    local place = tree({ ["run.sh"] = "x", ["data"] = "x" })
    support.shell("chmod 750 " .. quote(place .. "/run.sh"))
    local out = support.directory() .. "/w.kze"
    pack("archive", out, place)
    lu.assertEquals(pack("list", out).out,
        "0644          1  data\n0755          1  run.sh\n")
end

local FAULTY = [[
local function inner() error("broken") end
return { main = function() inner() end }
]]

function TestArchive.test_compiled_modules_still_say_where()
    local out = support.directory()
    pack("archive", "-c", out .. "/w.kze", tree({ ["widget.lua"] = FAULTY }))
    local result = run_widget(out .. "/w.kze")
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, "w.kze/widget.lua:1: broken\n")
end

function TestArchive.test_stripped_modules_run_and_tell_nothing()
    local out = support.directory()
    pack("archive", "-s", out .. "/w.kze", tree({ ["widget.lua"] = FAULTY }))
    local result = run_widget(out .. "/w.kze")
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, "broken\nstack traceback:\n")
    lu.assertStrContains(result.err, "in function <?:2>\n")
    lu.assertNotStrContains(result.err, "widget.lua")
end

function TestArchive.test_every_construct_survives_stripping()
    local text = [[
        local up, n = "text with \0 zero", -1.5e300
        local function va(...) return select("#", ...), ... end
        local t = setmetatable({}, { __index = function(_, k)
            return function() up = up .. k return up end
        end })
        goto done
        do error("not reached") end
        ::done::
        return { main = function()
            print(va(nil, true, false), n, #t.abc(), (""):rep(3, "x"))
            for i = 1, 300 do assert(loadstring == nil or i) end
        end }
    ]]
    local function run(option)
        local out = support.directory() .. "/w.kze"
        pack("archive", option, out, tree({ ["widget.lua"] = text }))
        local result = run_widget(out)
        lu.assertEquals(result.status, 0, result.err)
        return result.out
    end
    local plain = run("-c")
    lu.assertStrContains(plain, "3\t")
    lu.assertEquals(run("-s"), plain)
end

function TestArchive.test_source_may_begin_as_a_script()
    local out = support.directory() .. "/w.kze"
    pack("archive", "-c", out, tree({
        ["widget.lua"] = "\239\187\191#!/usr/bin/lua\nerror('here')" }))
    local result = run_widget(out)
    lu.assertStrContains(result.err, "w.kze/widget.lua:2: here\n")
end

function TestArchive.test_a_module_that_does_not_compile_is_refused()
    local place = tree({ ["good.lua"] = "", ["bad.lua"] = "\n\nlocal = 1" })
    local out = support.directory() .. "/w.kze"
    assert_fails(("%s/bad.lua: w.kze/bad.lua:3: <name> expected near '='")
        :format(place), out, "archive", out, place)
end

function TestArchive.test_only_files_are_packed()
    local place = tree({ ["a.lua"] = "" })
    support.shell(("ln -s a.lua %s/b.lua"):format(quote(place)))
    local out = support.directory() .. "/w.kze"
    assert_fails(place .. "/b.lua: only files can be packed",
        out, "archive", out, place)
    place = tree({ ["a.lua"] = "" })
    support.shell(("mkfifo %s/b"):format(quote(place)))
    assert_fails(place .. "/b: only files can be packed",
        out, "archive", out, place)
end

function TestArchive.test_names_that_the_agent_refuses_are_refused()
    local place = tree({ ["a\\b.txt"] = "" })
    local out = support.directory() .. "/w.kze"
    assert_fails(place .. "/a\\b.txt: a name in an archive cannot hold a "
        .. "backslash", out, "archive", out, place)
end

function TestArchive.test_two_inputs_with_one_name_are_refused()
    local place, other = tree({ ["a.lua"] = "" }), tree({ ["a.lua"] = "" })
    local out = support.directory() .. "/w.kze"
    assert_fails(other .. "/a.lua: 'a.lua' is already in the archive",
        out, "archive", out, place, other)
end

function TestArchive.test_nothing_to_pack_is_a_failure()
    local place = support.directory()
    local out = support.directory() .. "/w.kze"
    assert_fails("nothing to pack in " .. place, out, "archive", out, place)
end

function TestArchive.test_what_cannot_be_read_or_written_is_said()
    local out = support.directory() .. "/w.kze"
    assert_fails("/no/such: No such file or directory",
        out, "archive", out, "/no/such")
    assert_fails("/no/such/w.kze: No such file or directory",
        out, "archive", "/no/such/w.kze", tree({ ["a.lua"] = "" }))
    assert_fails("w.zip: the name of an archive ends with .kze",
        out, "archive", "w.zip", tree({ ["a.lua"] = "" }))
end

function TestArchive.test_a_full_disk_leaves_the_old_archive()
    local place = tree({ ["a.lua"] = "return 1" })
    local out = support.directory() .. "/w.kze"
    pack("archive", out, place)
    local before = support.read(out)
    -- A limit on the size of files stands for the full disk.
    support.write(place .. "/noise", support.read(support.agent))
    local result = support.run(
        ("trap '' XFSZ; ulimit -f 8; %s archive %s %s"):format(
            quote(support.stage .. "/kzpack"), quote(out), quote(place)))
    lu.assertEquals(result.status, 1)
    lu.assertStrContains(result.err, "kzpack: " .. out .. ": File too ")
    lu.assertTrue(support.read(out) == before)
    local names = kza_host.list((out:match("^(.*)/")))
    lu.assertEquals(names, { "w.kze", "w.kze.version" })
end

function TestArchive.test_nothing_prepared_beside_the_output_is_written_to()
    local place = tree({ ["a.lua"] = "return 1" })
    local target = support.write(support.directory() .. "/target", "kept")
    local out = support.directory() .. "/w.kze"
    for _, name in ipairs({ out, out .. ".tmp", out .. ".version",
        out .. ".version.tmp" }) do
        support.shell(("ln -s %s %s"):format(quote(target), quote(name)))
    end
    pack("archive", out, place)
    lu.assertEquals(support.read(target), "kept")
    lu.assertEquals(names_in(out), "a.lua")
    lu.assertEquals(kza_host.stat(out, true).type, "file")
end

-- Files of archives that can never be loaded, and the warnings about them.
local SORRY = {
    {
        { "a.lua", "lib/fast.so", "lib/fast.c", "lib/fast.h" },
        "no C module is ever loaded from an archive: lib/fast.c (2 files)",
    },
    {
        { "src/uni.lua", "src/more/two.lua", "data/x.txt" },
        "no Lua file lies at the root: src/more/two.lua would be required as "
            .. "'src.more.two' (2 files)",
    },
    {
        { "src/uni.lua", "x.txt" },
        "no Lua file lies at the root: src/uni.lua would be required as "
            .. "'src.uni' (1 file)",
    },
    {
        { "uni.lua", "uni/init.lua", "uni/more.lua" },
        "uni/init.lua is never loaded, uni.lua is the same module (1 file)",
    },
    {
        { "uni.lua", "Uni.lua", "data/A.txt", "data/a.txt" },
        "data/a.txt differs from data/A.txt by case only (2 files)",
    },
    {
        { "src/uni.so", "src/uni.lua" },
        "no C module is ever loaded from an archive: src/uni.so (1 file)",
        "no Lua file lies at the root: src/uni.lua would be required as "
            .. "'src.uni' (1 file)",
    },
    { { "uni/init.lua", "uni/a.lua", "uni.c.txt", "a.b/c.lua" } },
    { { "data/x.txt", "readme" } },
}

function TestArchive.test_what_can_never_be_loaded_is_warned_of()
    for _, row in ipairs(SORRY) do
        local contents, expected = {}, {}
        for _, name in ipairs(row[1]) do
            contents[name] = ""
        end
        for i = 2, #row do
            expected[i - 1] = "kzpack: warning: " .. row[i] .. "\n"
        end
        local out = support.directory() .. "/w.kze"
        local result = kzpack("archive", out, tree(contents))
        lu.assertEquals(result.status, 0)
        lu.assertEquals(result.err, table.concat(expected))
        lu.assertStrContains(
            result.out, ("%s: %d entries, "):format(out, #row[1]))
    end
end

function TestArchive.test_packages_hold_what_cannot_be_required()
    local place = tree({ ["lib/lua/fast.so"] = "", ["src/uni.lua"] = "" })
    pack("plugin", "-o", support.directory(), "Widget", place)
end

TestPackage = {}

function TestPackage.test_names_are_rightly_formed()
    local place, out = tree({ ["a.lua"] = "" }), support.directory()
    local made = {
        { "Plugin-Widget-any-12.0.0-2932.noarch.kzp", "plugin", "Widget" },
        { "Plugin-Widget-sol11-12.0.0-101.x86_64.kzp", "plugin", "-b", "101",
            "--system", "sol11", "--machine", "x86_64", "Widget" },
        { "Plugin-Widget-any-12.0.0-2932.noarch.kzu", "removal", "Widget" },
    }
    for _, row in ipairs(made) do
        local words = { table.unpack(row, 2) }
        words[#words + 1] = place
        words[#words + 1] = "-o"
        words[#words + 1] = out
        local result = pack(table.unpack(words))
        lu.assertStrContains(
            result.out, out .. "/" .. row[1] .. ": 1 entries, ")
        lu.assertEquals(pack("verify", out .. "/" .. row[1]).out,
            out .. "/" .. row[1] .. ": accepted\n")
    end
end

function TestPackage.test_names_that_would_be_misread_are_refused()
    local place, out = tree({ ["a.lua"] = "" }), support.directory() .. "/x"
    assert_fails("the plugin's name 'My-Widget' may only hold letters, digits "
        .. "and '_'", out, "plugin", "My-Widget", place)
    assert_fails("the system '' may only hold letters, digits and '_'",
        out, "plugin", "--system", "", "W", place)
    assert_fails("the machine 'x.y' may only hold letters, digits and '_'",
        out, "plugin", "--machine", "x.y", "W", place)
    assert_fails("the build number '1a' is not a number",
        out, "removal", "-b", "1a", "W", place)
end

function TestPackage.test_is_installed_and_removed_by_the_agent()
    local host = installation()
    local place = tree({
        ["lua/widget.lua"] =
            "return { main = function() print('widget at work') end }",
        ["share/widget/table.txt"] = "1 2 3",
        ["bin/widget.sh"] = "echo widget",
    })
    support.shell("chmod +x " .. quote(place .. "/bin/widget.sh"))
    pack("plugin", "-o", host, "Widget", place)
    local words = "--appname widget --install_plugins"
    local result = run_installed(host, words)
    lu.assertEquals(result.status, 0, result.err)
    lu.assertEquals(result.out, "widget at work\n")
    lu.assertEquals(
        support.read(host .. "/share/widget/table.txt"), "1 2 3")
    support.shell("test -x " .. quote(host .. "/bin/widget.sh"))
    support.shell(
        "test -f " .. quote(host) .. "/Plugin-Widget-*.noarch.kzp.done")

    pack("removal", "-o", host, "Widget", place)
    result = run_installed(host, words)
    lu.assertEquals(result.status, 2)
    lu.assertStrContains(result.err, "module 'widget' not found")
    lu.assertNil(io.open(host .. "/bin/widget.sh"))
    lu.assertNil(io.open(host .. "/share/widget/table.txt"))
end

TestList = {}

function TestList.test_what_is_no_archive_is_said()
    local place = tree({ ["a.kze"] = "not a zip archive", ["empty.kze"] = "" })
    for _, name in ipairs({ "a.kze", "empty.kze", "missing.kze" }) do
        local result = kzpack("list", place .. "/" .. name)
        lu.assertEquals(result.status, 1)
        lu.assertStrContains(
            result.err, ("kzpack: %s/%s: "):format(place, name))
    end
end

TestUsage = {}

function TestUsage.test_help_is_no_failure()
    local result = pack("--help")
    lu.assertStrContains(result.out, "Usage: kzpack archive [option...]")
    for _, words in ipairs({ { "-h" }, { "archive", "--help" },
        { "list", "-h", "a", "b" } }) do
        lu.assertEquals(pack(table.unpack(words)).out, result.out)
    end
end

function TestUsage.test_options_stand_anywhere_and_in_every_form()
    local place = tree({ ["widget.lua"] = "return {}", ["-b"] = "data" })
    local out = support.directory() .. "/w.kze"
    for _, words in ipairs({
        { "-c", "-b", "7", "archive", out, place },
        { "archive", "--build", "7", out, "--compile", place },
        { "archive", "-cb7", out, place },
        { "archive", out, place, "--compile", "--build=7" },
        { "archive", "-b", "8", "-c", "-b", "7", "--", out, place },
    }) do
        local result = pack(table.unpack(words))
        lu.assertStrContains(result.out, out .. ": 2 entries, ")
        lu.assertEquals(
            support.read(out .. ".version"), "version: 12.0.0-7\n")
    end
end

function TestUsage.test_wrong_words_are_told()
    local wrong = {
        { "a command is needed" },
        { "there is no command 'no'", "no" },
        { "there is no option '--no'", "--no" },
        { "the last option needs a value", "archive", "-b" },
        { "'list' takes other words", "list" },
        { "'list' takes other words", "list", "a", "b" },
        { "'archive' takes other words", "archive", "a.kze" },
        { "option '-b' needs a value", "archive", "-b", "-c", "a.kze", "x" },
        { "there is no option '-z'", "archive", "-cz", "a.kze", "x" },
        { "option '--strip' does not take arguments", "--strip=1" },
    }
    for _, row in ipairs(wrong) do
        local result = kzpack(table.unpack(row, 2))
        lu.assertEquals(result.status, 2)
        lu.assertStrContains(result.err,
            "kzpack: " .. row[1] .. "; kzpack --help tells more\n")
    end
end
