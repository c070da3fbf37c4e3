-- SPDX-License-Identifier: Apache-2.0
--
-- What Lua finds when the application starts: arg, paths, searchers, modules.

local lu = require("luaunit")
local support = require("support")
local zip = require("kza.zip")

local quote = support.quote

-- Runs an application that is only a main function, with these words.
local function run_main(body, words, options)
    local place = support.directory()
    support.write(place .. "/app.lua",
        ("return { main = function()\n%s\nend }"):format(body))
    options = options or {}
    local all = { "--appname", "app", "--lua_path",
        place .. "/?.lua" .. (options.more_paths or "") }
    for _, word in ipairs(words or {}) do
        all[#all + 1] = word
    end
    local result = support.run_agent(all, options)
    result.place = place
    return result
end

local function output_of(body, words, options)
    local result = run_main(body, words, options)
    lu.assertEquals(result.err, "")
    lu.assertEquals(result.status, 0)
    return result.out, result.place
end

TestArg = {}

function TestArg:test_words_after_the_first_separator_are_numbered_from_1()
    local body = [[
        for i = 0, #arg do print(i, arg[i]) end
        print(arg[-1], #arg)
    ]]
    lu.assertEquals(output_of(body, { "--verbose", "--", "a", "b c", "" }),
        "0\tapp\n1\ta\n2\tb c\n3\t\n--verbose\t3\n")
    lu.assertEquals(output_of(body, { "x", "--", "a", "--", "--help" }),
        "0\tapp\n1\ta\n2\t--\n3\t--help\nx\t3\n")
end

function TestArg:test_options_have_negative_numbers()
    local out = output_of([[
        local first = 0
        while arg[first - 1] do first = first - 1 end
        print(first, arg[first], arg[first + 1], arg[first + 2])
    ]], { "--", "a" })
    lu.assertEquals(out,
        ("-7\t%s\t--workdir\t"):format(support.agent)
        .. out:match("[^\t]*$"))
end

function TestArg:test_without_a_separator_there_is_only_the_name()
    lu.assertEquals(output_of([[
        local count = 0
        while arg[-count - 1] do count = count + 1 end
        print(arg[0], #arg, arg[1], count, arg[-1])
    ]], { "word" }), "app\t0\tnil\t8\tword\n")
end

function TestArg:test_bytes_of_a_word_arrive_unchanged()
    lu.assertEquals(
        output_of("io.write(arg[1])", { "--", "dü\tß€" },
            { env = "LC_ALL=C.UTF-8" }), "dü\tß€")
end

function TestArg:test_ten_thousand_words()
    local place = support.directory()
    support.write(place .. "/app.lua", [[
        return { main = function() print(#arg, arg[1], arg[#arg]) end }
    ]])
    local result = support.run(("%s --appname app --workdir %s --lua_path %s "
        .. "-- $(seq 1 10000)"):format(quote(support.agent),
        quote(place .. "/work"), quote(place .. "/?.lua")))
    lu.assertEquals(result.out, "10000\t1\t10000\n")
    lu.assertEquals(result.status, 0, result.err)
end

TestGlobals = {}

function TestGlobals:test_the_domain_has_two_names_that_scripts_may_change()
    lu.assertEquals(output_of([[
        print(rawequal(dom, dom0))
        dom = nil
        print(dom0:Get("app.name"))
    ]]), "true\napp\n")
end

function TestGlobals:test_nothing_else_is_added()
    local known = {}
    for name in ([[_G _VERSION assert bit32 collectgarbage coroutine debug
        dofile error getmetatable io ipairs load loadfile math next os package
        pairs pcall print rawequal rawget rawlen rawset require select
        setmetatable string table tonumber tostring type xpcall
        dom dom0 arg kzaAppModule
        loadstring module unpack]]):gmatch("%S+") do
        known[name] = true
    end
    local out = output_of("for name in pairs(_G) do print(name) end")
    for name in out:gmatch("[^\n]+") do
        lu.assertTrue(known[name], name)
    end
end

TestPaths = {}

-- The places that Lua was built to look in, without those that are relative.
local LUA_DEFAULT = "/usr/local/share/lua/5.2/?.lua;"
    .. "/usr/local/share/lua/5.2/?/init.lua;/usr/local/lib/lua/5.2/?.lua;"
    .. "/usr/local/lib/lua/5.2/?/init.lua;/usr/share/lua/5.2/?.lua;"
    .. "/usr/share/lua/5.2/?/init.lua"

function TestPaths:test_given_list_then_installation_then_host()
    local out, place = output_of("print(package.path)")
    local bin = support.stage
    lu.assertEquals(out, ("%s/?.lua;%s/lua/?.lua;%s/lua/?/init.lua;%s\n")
        :format(place, bin, bin, LUA_DEFAULT))
end

function TestPaths:test_c_modules_likewise()
    local out = output_of("print(package.cpath)",
        { "--lua_cpath", "/one/?.so;/two/?.so" })
    lu.assertStrMatches(out, "/one/%?%.so;/two/%?%.so;"
        .. support.stage:gsub("%p", "%%%0") .. "/lib/lua/%?%.so;/usr/.*\n")
    for template in out:gmatch("[^;\n]+") do
        lu.assertEquals(template:sub(1, 1), "/")
    end
    lu.assertStrMatches(output_of("print(package.cpath)"),
        support.stage:gsub("%p", "%%%0") .. "/lib/lua/%?%.so;/usr/.*\n")
end

function TestPaths:test_the_environment_names_no_places_for_code()
    local body = "print(package.path .. package.cpath)"
    local plain = output_of(body)
    for _, name in ipairs({ "LUA_PATH", "LUA_CPATH", "LUA_PATH_5_2",
        "LUA_CPATH_5_2", "LUA_INIT", "LUA_INIT_5_2" }) do
        local out = output_of(body, {}, { env = name .. "='/evil/?.lua;;'" })
        -- The application lies in another directory each time.
        lu.assertEquals((out:gsub("^[^;]*", "")), (plain:gsub("^[^;]*", "")))
    end
end

function TestPaths:test_plugins_expand_the_list()
    local out, place = output_of("print(package.path)",
        { "--plugins", "p,q" }, { more_paths = ";/x/@/?.lua" })
    lu.assertStrContains(
        out, ("%s/?.lua;%s/?.lua;/x/p/?.lua;/x/q/?.lua;%s/lua/?.lua;"):format(
            place, place, support.stage))
end

function TestPaths:test_a_script_may_change_them()
    local extra = support.directory()
    support.write(extra .. "/late.lua", "return 'late'")
    lu.assertEquals(output_of(([[
        package.path = package.path .. ";%s/?.lua"
        print(require("late"))
    ]]):format(extra)), "late\n")
end

TestSearchers = {}

-- Modules of the same name in every place, each of which says where it is.
function TestSearchers:test_the_first_place_in_order_wins()
    local place, host = support.directory(), support.directory()
    support.shell(("ln -s %s/kz_agent %s/"):format(
        quote(support.stage), quote(host)))
    support.write(host .. "/lua/m.lua", "return 'installation'")
    support.write(host .. "/lua/app.lua", [[
        return { main = function() print(require("m")) end }
    ]])
    local archive = support.write(place .. "/a.kze", zip.pack({
        { name = "m.lua", bytes = "return 'archive'" } }))
    support.write(place .. "/m.lua", "return 'command line'")

    local function run(words)
        local result = support.run(("timeout -s KILL 60 %s/kz_agent --appname "
            .. "app %s"):format(quote(host), words))
        lu.assertEquals(result.status, 0, result.err)
        return result.out
    end
    local given = "--lua_path " .. quote(place .. "/?.lua")
    local archives = "--zippath " .. quote(archive)
    lu.assertEquals(run(given .. " " .. archives), "command line\n")
    lu.assertEquals(run(archives), "archive\n")
    lu.assertEquals(run(""), "installation\n")
end

function TestSearchers:test_preload_comes_before_all()
    package.preload["kzlua"] = function() return "preloaded" end
    lu.assertEquals(require("kzlua"), "preloaded")
    package.preload["kzlua"], package.loaded["kzlua"] = nil, nil
end

function TestSearchers:test_there_are_six()
    lu.assertEquals(#package.searchers, 6)
end

function TestSearchers:test_a_module_is_told_its_name_and_place()
    local place = support.directory()
    local code = "return table.concat({ ... }, ' ')"
    local archive = support.write(place .. "/a.kze", zip.pack({
        { name = "in/archive.lua", bytes = code },
        { name = "pack/init.lua", bytes = code } }))
    support.write(place .. "/in/file.lua", code)
    lu.assertEquals(output_of([[
        print(require("in.archive"))
        print(require("pack"))
        print(require("in.file"))
    ]], { "--zippath", archive }, { more_paths = ";" .. place .. "/?.lua" }),
        ("in.archive %s/in/archive.lua\npack %s/pack/init.lua\n"
        .. "in.file %s/in/file.lua\n"):format(archive, archive, place))
end

function TestSearchers:test_a_module_not_found_lists_every_place_tried()
    local place = support.directory()
    local archive = support.write(place .. "/a.kze", zip.pack({}))
    local out, app = output_of([[
        print(select(2, pcall(require, "no.such")))
    ]], { "--zippath", archive })
    local bin = support.stage
    local lines = {
        "module 'no.such' not found:",
        "\tno field package.preload['no.such']",
        ("\tno file '%s/no/such.lua'"):format(app),
        ("\tno file '%s/kza_core/kza.kze/no/such.lua'"):format(bin),
        ("\tno file '%s/kza_core/kza.kze/no/such/init.lua'"):format(bin),
        ("\tno file '%s/no/such.lua'"):format(archive),
        ("\tno file '%s/no/such/init.lua'"):format(archive),
        ("\tno file '%s/lua/no/such.lua'"):format(bin),
        ("\tno file '%s/lua/no/such/init.lua'"):format(bin),
    }
    for template in LUA_DEFAULT:gmatch("[^;]+") do
        lines[#lines + 1] =
            ("\tno file '%s'"):format(template:gsub("%?", "no/such"))
    end
    local expected = table.concat(lines, "\n") .. "\n"
    lu.assertEquals(out:sub(1, #expected), expected)

    -- Then C modules: of that name, and all in one of the name "no".
    local rest = out:sub(#expected + 1)
    lu.assertStrContains(
        rest, ("\tno file '%s/lib/lua/no/such.so'\n"):format(bin))
    lu.assertStrContains(
        rest, ("\tno file '%s/lib/lua/no.so'\n"):format(bin))
    for line in rest:gmatch("[^\n]+") do
        lu.assertStrMatches(line, "\tno file '/.*%.so'")
    end
end

TestOutput = {}

function TestOutput:test_print_and_write_keep_their_order()
    lu.assertEquals(output_of([[
        for i = 1, 3 do
            print("print", i, nil, true)
            io.write("write ", i, "\n")
            io.stdout:write("stdout ", i, "\n")
        end
    ]]), ("print\t%d\tnil\ttrue\nwrite %d\nstdout %d\n"):rep(3)
        :gsub("%%d", "%%s"):format(1, 1, 1, 2, 2, 2, 3, 3, 3))
end

function TestOutput:test_print_shows_values_as_tostring_does()
    lu.assertEquals(output_of([[
        print(setmetatable({}, { __tostring = function() return "mine" end }),
            1.5, "a\0b")
        print()
    ]]), "mine\t1.5\ta\0b\n\n")
end

TestModules = {}

function TestModules:test_cjson()
    local cjson = require("cjson")
    lu.assertEquals(cjson.decode(cjson.encode({ a = { 1, 2 } })),
        { a = { 1, 2 } })
    lu.assertError(cjson.decode, "{")
end

function TestModules:test_socket()
    local socket = require("socket")
    local server = assert(socket.bind("127.0.0.1", 0))
    local _, port = server:getsockname()
    local client = assert(socket.connect("127.0.0.1", port))
    local peer = assert(server:accept())
    assert(client:send("hello\n"))
    lu.assertEquals(peer:receive(), "hello")
    client:close()
    peer:close()
    server:close()
end

function TestModules:test_posix()
    local unistd = require("posix.unistd")
    local stat = io.open("/proc/self/stat"):read("*a")
    lu.assertEquals(unistd.getpid(), tonumber(stat:match("^%d+")))
end

function TestModules:test_lfs()
    local lfs = require("lfs")
    lu.assertEquals(lfs.attributes(support.agent, "mode"), "file")
end

function TestModules:test_penlight()
    local stringx = require("pl.stringx")
    lu.assertEquals(stringx.strip("  x  "), "x")
end

function TestModules:test_a_c_module_from_a_given_place()
    local place = support.directory()
    local found = package.searchpath("cjson", package.cpath)
    support.shell(("cp %s %s/cjson.so"):format(quote(found), quote(place)))
    lu.assertEquals(output_of([[
        print(package.searchpath("cjson", package.cpath))
        print(require("cjson").encode({ 1 }))
    ]], { "--lua_cpath", place .. "/?.so" }), place .. "/cjson.so\n[1]\n")
end
