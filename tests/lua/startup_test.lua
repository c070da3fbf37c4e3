-- SPDX-License-Identifier: Apache-2.0
--
-- kza.startup: command lines and configuration files as a start reads them.

local lu = require("luaunit")
local startup = require("kza.startup")
local support = require("support")

TestOptions = {}

function TestOptions:test_every_form_of_an_option()
    local options = startup.options({ "--appname", "a", "--workdir=b c", "-ld",
        "-z=e", "-bi", "--test", "-p", "x,y" })
    lu.assertEquals(options, {
        { name = "appname", value = "a" }, { name = "workdir", value = "b c" },
        { name = "lua_path", value = "d" }, { name = "zippath", value = "e" },
        { name = "background" }, { name = "install_plugins" },
        { name = "test" }, { name = "plugins", value = "x,y" }, words = {},
    })
end

function TestOptions:test_order_and_repetition_are_kept()
    lu.assertEquals(startup.options({ "-d", "a=1", "word", "-d", "b=ä", "--",
        "--background" }), {
        { name = "domain_var", value = "a=1" },
        { name = "domain_var", value = "b=ä" },
        words = { "word", "--background" },
    })
    lu.assertEquals(startup.options({}), { words = {} })
end

function TestOptions:test_what_a_start_refuses()
    for _, row in ipairs({
        { { "--fly" }, "Unknown long option 'fly'" },
        { { "--appname" }, "Option 'appname' requires a value." },
        { { "--help" }, "help is asked for, which starts nothing" },
    }) do
        local options, message = startup.options(row[1])
        lu.assertNil(options)
        lu.assertStrContains(message, row[2])
    end
end

function TestOptions:test_wrong_arguments_are_errors()
    lu.assertStrContains(support.error_of(startup.options, "x"),
        "table expected")
    lu.assertStrContains(support.error_of(startup.options, { {} }),
        "words expected")
end

TestConfiguration = {}

local function entries(text)
    local path = support.write(support.directory() .. "/a.ini", text)
    return startup.configuration(path)
end

function TestConfiguration:test_entries_of_all_groups()
    lu.assertEquals(entries('Trace=Appl\n# no entry\n[domain]\na.B = " x "\n'
        .. "[domain/more]\nc=\n"), {
        { group = "", name = "Trace", value = "Appl" },
        { group = "domain", name = "a.B", value = " x " },
        { group = "domain/more", name = "c", value = "" },
    })
end

function TestConfiguration:test_what_cannot_be_read_has_none()
    lu.assertEquals(startup.configuration("/none"), {})
    lu.assertEquals(entries("no entry\n[open\n"), {})
    lu.assertEquals(entries("\255\254\0"), {})
end
