-- SPDX-License-Identifier: Apache-2.0
--
-- kza.host: by which key a package is signed.

local lu = require("luaunit")
local host = require("kza.host")
local support = require("support")

local quote = support.quote

-- A directory with the public half of a new key.
local function new_key(name, kind)
    local place = support.directory()
    local private = place .. "/" .. name .. ".private"
    local public = place .. "/" .. name .. ".pem"
    support.shell(("umask 022; openssl genpkey -quiet %s -out %s && "
        .. "openssl pkey -in %s -pubout -out %s"):format(
        kind or "-algorithm EC -pkeyopt ec_paramgen_curve:P-256",
        quote(private), quote(private), quote(public)))
    return place, private
end

local function sign(package, private)
    support.shell(("openssl dgst -sha256 -sign %s -out %s %s"):format(
        quote(private), quote(package .. ".sig"), quote(package)))
end

local function package()
    return support.write(support.directory() .. "/P ä.kzp", "a package")
end

TestKeys = {}

function TestKeys:test_signer_is_named_by_its_key()
    local place, private = new_key("release 1")
    local file = package()
    sign(file, private)
    local keys, message, passed_over = host.keys(place)
    lu.assertNil(message)
    lu.assertEquals(passed_over, {})
    lu.assertEquals({ keys:signer(file) }, { "release 1" })
end

function TestKeys:test_what_is_not_signed_says_so()
    local keys = host.keys((new_key("one")))
    lu.assertEquals({ keys:signer(package()) }, { nil, "it has no signature" })
    local _, other = new_key("other")
    local file = package()
    sign(file, other)
    lu.assertEquals({ keys:signer(file) },
        { nil, "its signature fits none of the keys" })
    lu.assertEquals({ keys:signer("/none") },
        { nil, "cannot be opened: No such file or directory" })
end

function TestKeys:test_a_changed_package_is_not_signed()
    local place, private = new_key("one")
    local file = package()
    sign(file, private)
    support.write(file, "another package")
    lu.assertEquals({ host.keys(place):signer(file) },
        { nil, "its signature fits none of the keys" })
end

function TestKeys:test_useless_keys_are_passed_over()
    local place = new_key("good")
    support.write(place .. "/bad.pem", "no key")
    local keys, _, passed_over = host.keys(place)
    lu.assertNotNil(keys)
    lu.assertEquals(#passed_over, 1)
    lu.assertStrContains(passed_over[1],
        ("Key '%s/bad.pem' is passed over: "):format(place))
end

function TestKeys:test_directories_without_keys_say_why()
    local function problem(directory)
        local keys, message, passed_over = host.keys(directory)
        lu.assertNil(keys)
        lu.assertEquals(passed_over, {})
        return message
    end
    lu.assertEquals(problem("keys"), "'keys' is no absolute path")
    lu.assertEquals(problem("/none"),
        "'/none' cannot be opened: No such file or directory")
    local empty = support.directory()
    lu.assertEquals(problem(empty),
        ("no usable key is in '%s'"):format(empty))
    local place = new_key("one")
    support.shell("chmod 777 " .. quote(place))
    lu.assertStrContains(problem(place), "can be changed by others")
end

function TestKeys:test_wrong_arguments_are_errors()
    lu.assertStrContains(support.error_of(host.keys, "/a\0b"),
        "path holds a NUL")
    local keys = host.keys((new_key("one")))
    lu.assertStrContains(support.error_of(keys.signer, {}, "file"),
        "kza.host.Keys expected")
end
