-- SPDX-License-Identifier: Apache-2.0
--
-- Data files that travel in archives: dom:ReadArchive.

local lu = require("luaunit")
local support = require("support")
local zip = require("kza.zip")

local own_archives = dom:Get("app.lua.zippath")

-- An archive with these entries, {name = bytes}.
local function archive(entries)
    local list = {}
    for name, bytes in pairs(entries) do
        list[#list + 1] = { name = name, bytes = bytes }
    end
    return support.write(support.directory() .. "/a.kze", zip.pack(list))
end

-- Puts archives before the agent's own.
local function use(...)
    dom:Set("app.lua.zippath", table.concat({ ..., own_archives }, ";"))
end

TestReadArchive = {}

function TestReadArchive:tearDown()
    dom:Set("app.lua.zippath", own_archives)
end

function TestReadArchive:test_bytes_come_back_as_they_are()
    local bytes = "a\0b\r\nc\255"
    use(archive({ ["templates/mail.txt"] = bytes, empty = "" }))
    lu.assertEquals(dom:ReadArchive("templates/mail.txt"), bytes)
    lu.assertEquals(dom:ReadArchive("empty"), "")
end

function TestReadArchive:test_a_large_entry()
    local bytes = ("0123456789abcdef"):rep(1024 * 1024)
    use(archive({ ["table.dat"] = bytes }))
    lu.assertTrue(dom:ReadArchive("table.dat") == bytes)
end

function TestReadArchive:test_the_first_archive_in_order_wins()
    local first, second = archive({ x = "1" }), archive({ x = "2", y = "3" })
    use(first .. ";" .. second)
    lu.assertEquals(dom:ReadArchive("x"), "1")
    lu.assertEquals(dom:ReadArchive("y"), "3")
    use(second .. ";" .. first)
    lu.assertEquals(dom:ReadArchive("x"), "2")
end

function TestReadArchive:test_the_name_is_taken_to_the_letter()
    use(archive({ ["a/b.lua"] = "code", ["c.d"] = "dotted" }))
    lu.assertEquals(dom:ReadArchive("a/b.lua"), "code")
    lu.assertEquals(dom:ReadArchive("c.d"), "dotted")
    for _, name in ipairs({ "a.b", "a/b", "./a/b.lua", "/a/b.lua", "A/b.lua",
        "", "a", "c.d\0", "a/../c.d" }) do
        lu.assertNil(dom:ReadArchive(name))
    end
end

function TestReadArchive:test_a_miss_names_every_archive()
    local one, two = archive({ x = "" }), archive({ y = "" })
    dom:Set("app.lua.zippath", one .. ";/no/such.kze;" .. two)
    local bytes, message = dom:ReadArchive("z.txt")
    lu.assertNil(bytes)
    lu.assertStrContains(message, ("'z.txt' not found:\n"
        .. "\tno file '%s/tests/lua/support/z.txt'\n"
        .. "\tno file '%s/z.txt'\n"
        .. "\tno usable archive '/no/such.kze': "):format(
            os.getenv("KZA_SOURCE_DIR"), one))
    lu.assertStrContains(message, ("\n\tno file '%s/z.txt'"):format(two))
end

function TestReadArchive:test_without_archives()
    dom:Set("app.lua.zippath", nil)
    local bytes, message = dom:ReadArchive("x")
    lu.assertNil(bytes)
    lu.assertEquals(message, ("'x' not found:\n"
        .. "\tno file '%s/tests/lua/support/x'"):format(
            os.getenv("KZA_SOURCE_DIR")))
end

function TestReadArchive:test_damaged_content_is_told()
    local path = archive({ x = "content" })
    support.write(path, (support.read(path):gsub("content", "CONTENT")))
    use(path)
    local bytes, message = dom:ReadArchive("x")
    lu.assertNil(bytes)
    lu.assertStrContains(message, path .. "/x: ")
end

function TestReadArchive:test_a_replaced_archive_is_noticed()
    local path = archive({ x = "old" })
    use(path)
    lu.assertEquals(dom:ReadArchive("x"), "old")
    support.shell(("mv %s %s"):format(
        support.quote(archive({ x = "newer" })), support.quote(path)))
    lu.assertEquals(dom:ReadArchive("x"), "newer")
end

function TestReadArchive:test_arguments()
    lu.assertErrorMsgContains(
        "bad argument #1 to 'ReadArchive' (string expected, got no value)",
        function() dom:ReadArchive() end)
    lu.assertErrorMsgContains(
        "bad argument #1 to 'ReadArchive' (string expected, got table)",
        function() dom:ReadArchive({}) end)
end
