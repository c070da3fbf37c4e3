-- SPDX-License-Identifier: Apache-2.0
--
-- The Lua prompt: as a filter, and on a terminal.

local lu = require("luaunit")
local support = require("support")

local quote = support.quote

-- What the prompt makes of this input when it is no terminal.
local function feed(input)
    local path = support.write(support.directory() .. "/input", input)
    return support.run(("timeout -s KILL 60 %s --appname kzlua --workdir %s "
        .. "<%s"):format(quote(support.agent), quote(support.directory()),
        quote(path)))
end

-- The same on a terminal, which script(1) makes. Each line is typed once the
-- prompt for it is there; the terminal shows what is typed. `options` are words
-- for the agent.
local function type_lines(lines, options)
    local work = support.directory()
    local path = support.write(work .. "/input", lines)
    local command = ("%s --appname kzlua --workdir %s %s"):format(
        quote(support.agent), quote(work), options or "")
    local result = support.run(([[
        TERM=dumb timeout -s KILL 60 script -qec %s /dev/null <%s
    ]]):format(quote(command), quote(path)))
    result.out = result.out:gsub("\r", "")
    return result, work
end

TestFilter = {}

function TestFilter.test_expressions_print_their_values()
    local result = feed('1 + 1\n"a", nil, 3\n= 5\ndom:Get("app.name")\nnil\n'
        .. "return 6, 7\n")
    lu.assertEquals(result.out, "2\na\tnil\t3\n5\nkzlua\nnil\n6\t7\n")
    lu.assertEquals(result.err, "")
    lu.assertEquals(result.status, 0)
end

function TestFilter.test_statements_print_nothing()
    local result = feed("x = 1\nlocal y = 2\nx, y\n\nlocal function f() end\n")
    lu.assertEquals(result.out, "1\tnil\n")
    lu.assertEquals(result.status, 0)
end

function TestFilter.test_a_chunk_may_have_several_lines()
    local result = feed("for i = 1, 2 do\nprint(i)\nend\n(1 +\n2)\n")
    lu.assertEquals(result.out, "1\n2\n3\n")
    lu.assertEquals(result.status, 0)
end

function TestFilter.test_an_error_shows_its_traceback_and_the_prompt_goes_on()
    local result = feed(
        'function f() error("deep") end\nf()\nprint("still here")\n')
    lu.assertEquals(result.out, "still here\n")
    lu.assertStrContains(result.err, "stdin:1: deep\nstack traceback:\n"
        .. "\t[C]: in function 'error'\n"
        .. "\tstdin:1: in function 'f'\n"
        .. "\tstdin:1: in main chunk\n")
    lu.assertEquals(result.status, 1)
end

function TestFilter.test_whatever_the_error_value_is()
    local result = feed("error({})\nerror(nil)\nerror(setmetatable({}, "
        .. "{ __tostring = function() return 'my own' end }))\nerror(7, 0)\n"
        .. "print('still here')\n")
    lu.assertEquals(result.out, "still here\n")
    for _, text in ipairs({ "{}\n",
        "(error object is a nil value)\n", "my own\n", "7\n" }) do
        lu.assertStrContains(result.err, text .. "stack traceback:\n")
    end
end

function TestFilter.test_a_syntax_error_is_told()
    local result = feed("x = = 1\nprint('still here')\n")
    lu.assertStrContains(
        result.err, "stdin:1: unexpected symbol near '='\n")
    lu.assertEquals(result.out, "still here\n")
end

function TestFilter.test_an_unfinished_chunk_at_the_end_is_told()
    local result = feed("for i = 1, 2 do\n")
    lu.assertStrContains(result.err, "stdin:1: 'end' expected near <eof>\n")
    lu.assertEquals(result.status, 1)
end

function TestFilter.test_errors_are_reported_as_by_the_agent()
    local result = feed("dom:get('k')\nerror({ code = 7 })\n")
    lu.assertStrContains(result.err,
        "attempt to call method 'get' (a nil value), did you mean 'Get'?\n")
    lu.assertStrContains(result.err, "{code = 7}\nstack traceback:\n")
    lu.assertNotStrContains(result.err, "xpcall")
end

function TestFilter.test_a_value_that_cannot_be_shown()
    local result = feed("setmetatable({}, { __tostring = function() "
        .. "error('no') end })\nprint('still here')\n")
    lu.assertStrContains(
        result.err, "cannot print the result: stdin:1: no\n")
    lu.assertEquals(result.out, "still here\n")
end

function TestFilter.test_no_input_is_no_error()
    lu.assertEquals(feed("").status, 0)
end

function TestFilter.test_exit_ends_it_with_that_status()
    lu.assertEquals(feed("os.exit(7)\n1\n").status, 7)
end

TestTerminal = {}

function TestTerminal.test_prompts_and_greets()
    local result = type_lines("1 + 1\nfor i = 1, 2 do\nprint(i * 10)\nend\n\4")
    lu.assertStrContains(result.out,
        "Lua 5.2 in agent 12.0.0.2932; 'dom' is the domain, Ctrl-D ends\n")
    lu.assertStrContains(result.out, "\n2\n")
    lu.assertStrContains(result.out, ">> ")
    lu.assertStrContains(result.out, "10\n20\n")
    lu.assertEquals(result.status, 0)
end

function TestTerminal.test_keeps_a_history_where_lines_can_be_edited()
    local _, work = type_lines("first_line = 1\n\4")
    lu.assertEquals(support.read(work .. "/kzlua_history"), "first_line = 1\n")
end

function TestTerminal.test_works_without_the_editing_module()
    local shadow = support.directory()
    support.write(shadow .. "/readline.lua", "error('not here')")
    local result = type_lines("1 + 1\n\4",
        "--lua_path " .. quote(shadow .. "/?.lua"))
    lu.assertStrContains(result.out, "> 2\n> ")
    lu.assertEquals(result.status, 0)
end

TestLauncher = {}

function TestLauncher.test_passes_options_to_the_agent()
    local place = support.directory()
    support.write(place .. "/mine.lua", "return { answer = 42 }")
    support.shell(("ln -s %s/kz_agent %s/kza_core %s/kzlua %s/"):format(
        quote(support.stage), quote(support.stage), quote(support.stage),
        quote(place)))
    local result = support.run(("echo 'require(\"mine\").answer' | %s "
        .. "--lua_path %s"):format(quote(support.stage .. "/kzlua"),
        quote(place .. "/?.lua")))
    lu.assertEquals(result.out, "42\n")
    lu.assertEquals(result.status, 0)
end
