-- SPDX-License-Identifier: Apache-2.0
--
-- The module that is built into the agent, and what stands on it.

local lu = require("luaunit")
local files = require("kza.files")
local host = require("kza.host")
local strip = require("kza.strip")
local support = require("support")
local zip = require("kza.zip")

local quote = support.quote

TestHost = {}

function TestHost:test_list_is_sorted_by_byte_and_whole()
    local place = support.directory()
    for _, name in ipairs({ "b", "B", ".h", "ä", "a b", "a" }) do
        support.write(place .. "/" .. name, "")
    end
    lu.assertEquals(host.list(place), { ".h", "B", "a", "a b", "b", "ä" })
    lu.assertEquals(host.list(support.directory()), {})
end

function TestHost:test_failures_are_nil_and_a_message()
    local place = support.directory()
    support.write(place .. "/file", "")
    local failures = {
        { host.list, place .. "/none", "No such file or directory" },
        { host.list, place .. "/file", "Not a directory" },
        { host.stat, place .. "/none", "No such file or directory" },
        { host.stat, "", "No such file or directory" },
    }
    for _, row in ipairs(failures) do
        local result, message = row[1](row[2])
        lu.assertNil(result)
        lu.assertEquals(message, ("%s: %s"):format(row[2], row[3]))
    end
end

function TestHost:test_a_path_is_not_cut_at_a_zero_byte()
    for _, call in ipairs({
        host.list, host.stat, host.entries, host.write, host.changeable }) do
        lu.assertErrorMsgContains("path holds a NUL", call, "/tmp\0/x", "")
    end
end

function TestHost:test_stat_tells_kind_size_and_rights()
    local place = support.directory()
    support.write(place .. "/file", "12345")
    support.shell(("cd %s && chmod 4751 file && ln -s file link && mkfifo p")
        :format(quote(place)))
    local stat = host.stat(place .. "/file")
    lu.assertAlmostEquals(stat.modified, os.time(), 3600)
    lu.assertEquals(stat, { type = "file", size = 5,
        mode = tonumber("4751", 8), user = host.user(), group = stat.group,
        modified = stat.modified, changed = stat.changed,
        device = stat.device, inode = stat.inode })
    lu.assertAlmostEquals(stat.changed, os.time(), 3600)
    support.shell(("cd %s && ln file other"):format(quote(place)))
    lu.assertEquals(host.stat(place .. "/other").inode, stat.inode)
    lu.assertNotEquals(host.stat(place).inode, stat.inode)
    lu.assertEquals(host.stat(place .. "/link").type, "file")
    lu.assertEquals(host.stat(place .. "/link", true).type, "link")
    lu.assertEquals(host.stat(place).type, "directory")
    lu.assertEquals(host.stat(place .. "/p").type, "other")
end

function TestHost:test_changeable_tells_what_others_can_change()
    local place = support.directory()
    local file = support.write(place .. "/a b", "")
    support.shell("chmod 755 " .. quote(place) .. "; chmod 644 " .. quote(file))
    lu.assertEquals(host.changeable(place), {})
    lu.assertEquals(host.changeable(file), {})
    support.shell("chmod 1777 " .. quote(place))
    support.shell("chmod 664 " .. quote(file))
    local text = "'%s' can be changed by others (owner %d, mode %s)"
    lu.assertEquals(host.changeable(file), {
        text:format(place, host.user(), "1777"),
        text:format(file, host.user(), "0664") })
    lu.assertEquals(host.changeable(place .. "/none"), {
        text:format(place, host.user(), "1777") })
end

function TestHost:test_checksum()
    lu.assertEquals(host.crc32(""), 0)
    lu.assertEquals(host.crc32("123456789"), 0xCBF43926)
    lu.assertEquals(host.crc32("56789", host.crc32("1234")), 0xCBF43926)
end

function TestHost:test_copy_makes_a_new_file()
    local place = support.directory()
    local from = support.write(place .. "/from", "a\0b")
    lu.assertTrue(host.copy(from, place .. "/to"))
    lu.assertEquals(support.read(place .. "/to"), "a\0b")
    lu.assertEquals({ host.copy(from, place .. "/to") },
        { nil, place .. "/to: File exists" })
    lu.assertEquals({ host.copy(place .. "/none", place .. "/too") },
        { nil, place .. "/none: No such file or directory" })
end

function TestHost:test_make_directory()
    local path = support.directory() .. "/new"
    lu.assertTrue(host.make_directory(path))
    lu.assertEquals(host.stat(path).mode, tonumber("700", 8))
    lu.assertEquals({ host.make_directory(path) },
        { nil, path .. ": File exists" })
    lu.assertTrue(host.make_directory(path .. "/shared", true))
    support.shell("mkdir " .. support.quote(path .. "/usual"))
    lu.assertEquals(host.stat(path .. "/shared").mode,
        host.stat(path .. "/usual").mode)
end

function TestHost:test_access()
    lu.assertTrue(host.access(support.agent, "read"))
    lu.assertTrue(host.access(support.directory(), "write"))
    lu.assertEquals({ host.access("/none", "write") },
        { nil, "/none: No such file or directory" })
    lu.assertErrorMsgContains("invalid option 'x'", host.access, "/", "x")
end

function TestHost:test_isatty()
    lu.assertFalse(host.isatty(99))
    lu.assertEquals(support.run(("echo 'require(\"kza.host\").isatty(0)' | "
        .. "%s --appname kzlua --workdir %s"):format(quote(support.agent),
        quote(support.directory()))).out, "false\n")
    lu.assertErrorMsgContains("number expected, got no value", host.isatty)
end

function TestHost:test_entries()
    local path = support.write(support.directory() .. "/a.zip", zip.pack({
        { name = "b", bytes = "12" }, { name = "a/" },
        { name = "c", executable = true },
    }))
    local entries = {
        { name = "b", size = 2, mode = tonumber("644", 8),
            crc = host.crc32("12") },
        { name = "a/", size = 0, mode = tonumber("755", 8), crc = 0 },
        { name = "c", size = 0, mode = tonumber("755", 8), crc = 0 },
    }
    lu.assertEquals(host.entries(path), entries)
    lu.assertEquals(host.entries(path, true), entries)
end

-- A directory, and a package in it with these entries.
local function new_package(entries)
    local place = support.directory()
    return place, support.write(place .. "/p.kzp", zip.pack(entries))
end

function TestHost:test_an_unusable_package_is_told_and_nothing_written()
    local place, package = new_package({
        { name = "good", bytes = "x" }, { name = "../evil" } })
    local accepted, message = host.check_package(package, place)
    lu.assertNil(accepted)
    lu.assertStrContains(message, "../evil")
    lu.assertEquals(host.list(place), { "p.kzp" })
end

function TestHost:test_check_package_makes_no_directory()
    local place, package = new_package({ { name = "lib/good", bytes = "x" } })
    lu.assertTrue(host.check_package(package, place .. "/bin"))
    lu.assertEquals(host.list(place), { "p.kzp" })
end

function TestHost:test_check_package_removes_nothing()
    local place, package = new_package({ { name = "lib/good", bytes = "x" } })
    -- As unpacking leaves it when it is killed; no process has this number.
    local left = support.write(place .. "/lib/.kza_unzip.2147483647.1", "")
    lu.assertTrue(host.check_package(package, place))
    lu.assertEquals(host.stat(left).type, "file")
end

function TestHost:test_check_package_may_look_at_names_only()
    local place = support.directory()
    local file = { name = "file", bytes = "x" }
    local package = support.write(place .. "/p.kzu", zip.pack({ file, file }))
    local _, message = host.check_package(package, place)
    lu.assertStrContains(message, "it is there twice")
    lu.assertTrue(host.check_package(package, place, true))
end

TestFiles = {}

function TestFiles:test_write_replaces_whole()
    local path = support.directory() .. "/file"
    lu.assertTrue(files.write(path, "old"))
    lu.assertTrue(files.write(path, "new\0"))
    lu.assertEquals(files.read(path), "new\0")
    lu.assertEquals(host.list(path:match("^(.*)/")), { "file" })
end

function TestFiles:test_failures_are_nil_and_a_message()
    local place = support.directory()
    local _, message = files.read(place .. "/none")
    lu.assertEquals(message, place .. "/none: No such file or directory")
    _, message = files.read(place)
    lu.assertStrContains(message, place .. ": Is a directory")
    support.write(place .. "/directory/file", "")
    _, message = files.write(place .. "/directory", "x")
    lu.assertEquals(message, place .. "/directory: Is a directory")
    lu.assertEquals(host.list(place), { "directory" })
    _, message = files.tree(place .. "/none")
    lu.assertStrContains(message, "No such file or directory")
end

function TestFiles:test_glob_of_a_plain_path_is_the_path()
    local place = support.directory()
    support.write(place .. "/a", "")
    lu.assertEquals(files.glob(place .. "/a"), { place .. "/a" })
    lu.assertEquals(files.glob(place .. "/b"), {})
    lu.assertEquals(files.glob("/"), { "/" })
    lu.assertEquals(files.glob(""), {})
end

function TestFiles:test_tree_goes_depth_first_and_follows_no_link()
    local place = support.directory()
    support.write(place .. "/b/c", "")
    support.write(place .. "/a", "")
    support.shell(("ln -s . %s/b/link"):format(quote(place)))
    local names = {}
    for i, entry in ipairs(files.tree(place)) do
        names[i] = entry.name .. " " .. entry.info.type
    end
    lu.assertEquals(names,
        { "a file", "b directory", "b/c file", "b/link link" })
end

TestStrip = {}

function TestStrip:test_only_chunks_of_this_lua_are_taken()
    local chunk = string.dump(function() return 1 end)
    for _, bytes in ipairs({ "", "return 1", "\27Lua", chunk:sub(1, 12) }) do
        lu.assertError(strip, bytes)
    end
    lu.assertErrorMsgContains("cut short", strip, chunk:sub(1, -2))
    lu.assertErrorMsgContains("not a compiled chunk", strip,
        (chunk:gsub("^\27LuaR", "\27LuaS")))
end

function TestStrip:test_stripping_twice_changes_nothing()
    local once = strip(string.dump(function(a, ...)
        local t = { a, ... }
        return function() return t, nil, true, 1.5, "text" end
    end))
    lu.assertTrue(strip(once) == once)
    lu.assertEquals(#load(once)(1, 2)(), 2)
end
