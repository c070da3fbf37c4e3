-- SPDX-License-Identifier: Apache-2.0
--
-- `kzpack verify` and the agent agree: the agent uses each file that the tool
-- accepts, and no file that it refuses.

local lu = require("luaunit")
local support = require("support")
local zip = require("kza.zip")

local quote = support.quote

local function verify(path)
    local result = support.run(("%s verify %s"):format(
        quote(support.stage .. "/kzpack"), quote(path)))
    lu.assertEquals(result.err:gsub("%s", ""), "")
    return result
end

local function assert_accepted(path)
    local result = verify(path)
    lu.assertEquals(result.out, path .. ": accepted\n")
    lu.assertEquals(result.status, 0)
end

local function assert_refused(path, reason)
    local result = verify(path)
    lu.assertStrContains(result.out, path .. ": refused: " .. reason)
    lu.assertEquals(result.status, 1)
end

TestExtension = {}

-- An ASCII text in UTF-16 (width 2) or UTF-32 (width 4), behind its byte-order
-- mark.
local function wide(width, is_big_endian, text)
    local zeros = ("\0"):rep(width - 1)
    local mark = ("\0"):rep(width - 2) .. "\254\255"
    local function unit(character)
        return is_big_endian and zeros .. character or character .. zeros
    end
    return (is_big_endian and mark or mark:reverse()) .. text:gsub(".", unit)
end

-- Contents of side files, each with the reason why it is refused; false for one
-- that is accepted.
local SIDE_FILES = {
    { "version: 12.0.0-2932\n", false },
    { "version:12.0.0-1 anything", false },
    { "\239\187\191version: 12.0.0-0\r\n", false },
    { "x\rversion: +12.0.0-1", false },
    { "made by me\n version: 1.2.3-4\nversion: 12.0.0-1\nversion: x", false },
    { "version: 12.1.0-7\n", "made for version 12.1.0, this agent is 12.0.0" },
    { "version: 12.0.0\n", "%s has a malformed line 'version: 12.0.0'" },
    { "version: 12.0.0 -7\n", "%s has a malformed line" },
    { "version: x\nversion: 12.0.0-1\n", "%s has a malformed line" },
    { "Version: 12.0.0-1\n", "%s has no line 'version: ...'" },
    { "", "%s has no line 'version: ...'" },
    { wide(2, false, "x\nversion: 12.0.0-1\r\n"), false },
    { wide(2, true, "version: 12.0.0-1"), false },
    { wide(4, false, "version: 12.0.0-1"), false },
    { wide(4, true, "\r\rversion: 12.0.0-1\n"), false },
    { wide(2, true, "version: 12.0.1-1"), "made for version 12.0.1" },
    { wide(2, false, "version: 12.0.0"),
        "%s has a malformed line 'version: 12.0.0'" },
    -- U+7600 has the byte of a "v" in UTF-16.
    { "\255\254\0vversion: 12.0.0-1", "%s has no line 'version: ...'" },
    { "version: 12.0.0-99999999999999999999999", false },
    { "version: 12.0.0-4294967296", false },
    -- In 32 bits these are 12, 0 and 0.
    { "version: 4294967308.0.0-1", "made for version 2147483647.0.0" },
    { "version: 12.4294967296.0-1", "made for version 12.2147483647.0" },
    { "version: 12.0.18446744073709551616-1", "made for version 12.0.2147" },
    { "version: 12.0.-4294967296-1", "made for version 12.0.-2147483647" },
    { "version: -12.0.0-1", "made for version -12.0.0" },
    { "version:\t012.00.\v0-+1.5", false },
    { "version: +-12.0.0-1", "%s has a malformed line" },
    { "version:" .. (" "):rep(100000) .. "12.0.0-1", false },
    { ("x"):rep(100000) .. "\nversion: 12.0.0-1", false },
    { "version: 12.0.0-\n1", "%s has a malformed line 'version: 12.0.0-'" },
}

-- Whether an agent that finds the archive through a wildcard loads from it.
local function is_used(place)
    local result = support.run_agent({
        "--appname", "widget", "--zippath", place .. "/*.kze" })
    return result.out == "used\n"
end

local WIDGET = zip.pack({ { name = "widget.lua",
    bytes = "return { main = function() print('used') end }" } })

function TestExtension.test_side_files()
    for _, row in ipairs(SIDE_FILES) do
        local text, reason = row[1], row[2]
        local path = support.directory() .. "/w.kze"
        support.write(path, WIDGET)
        support.write(path .. ".version", text)
        if reason then
            assert_refused(path, reason:format(path .. ".version"))
        else
            assert_accepted(path)
        end
        lu.assertEquals(is_used(path:match("^(.*)/")), not reason, text)
    end
end

function TestExtension.test_without_a_side_file()
    local path = support.directory() .. "/w.kze"
    support.write(path, WIDGET)
    assert_refused(path, path .. ".version is missing")
    lu.assertFalse(is_used(path:match("^(.*)/")))
end

function TestExtension.test_damaged_archives()
    local damaged = {
        WIDGET:sub(1, -2), "", "not an archive",
        (WIDGET:gsub("used", "USED")),
    }
    for _, bytes in ipairs(damaged) do
        local path = support.directory() .. "/w.kze"
        support.write(path, bytes)
        support.write(path .. ".version", "version: 12.0.0-1\n")
        assert_refused(path, "")
        lu.assertFalse(is_used(path:match("^(.*)/")))
    end
end

function TestExtension.test_other_files_are_none_of_ours()
    local path = support.directory() .. "/w.zip"
    support.write(path, WIDGET)
    assert_refused(path, "neither an archive (.kze) nor a package (.kzp, .kzu)")
end

TestPackage = {}

local GOOD = zip.pack({ { name = "share/good.txt", bytes = "good" } })

-- Packages, each with the reason why it is not installed; false for one that is
-- installed.
local PACKAGES = {
    { "Plugin-Widget-sol11-12.0.0-101.x86_64.kzp", GOOD, false },
    { "Plugin-Widget-sol11-11.0.0-50.x86_64.kzp", GOOD,
        "the name says version '11.0.0', this agent is 12.0.0" },
    { "Plugin-Widget-12.0.0-101.kzp", GOOD,
        "the name says version 'Widget', this agent is 12.0.0" },
    { "Plugin-Widget-x-12.00.0-1.x86_64.kzp", GOOD,
        "the name says version '12.00.0'" },
    { "Widget.kzp", GOOD, false },
    { "Widget-1.x86_64.kzp", GOOD, false },
    { "Plugin--1.x86_64.kzp", GOOD, false },
    { "Widget.tar.kzp", GOOD, false },
    { "Agent-Core-x.kzp", GOOD, "a file named Agent-Core... is deleted" },
    { ".Widget.kzp", GOOD, "a hidden file is not looked for" },
    { "Climb.kzp", zip.pack({ { name = "../x", bytes = "" } }), "" },
    { "Root.kzp", zip.pack({ { name = "/tmp/x", bytes = "" } }), "" },
    { "Torn.kzp", GOOD:sub(1, -3), "" },
    { "Text.kzp", "no archive", "" },
}

function TestPackage.test_verdicts_are_what_installation_does()
    local host = support.directory()
    support.shell(("ln -s %s/kz_agent %s/kza_core %s/"):format(
        quote(support.stage), quote(support.stage), quote(host)))
    for _, row in ipairs(PACKAGES) do
        local path = support.write(host .. "/" .. row[1], row[2])
        if row[3] then
            assert_refused(path, row[3])
        else
            assert_accepted(path)
        end
    end

    support.write(host .. "/lua/nothing.lua", "return {}")
    local result = support.run(("timeout -s KILL 60 %s/kz_agent "
        .. "--appname nothing --install_plugins"):format(quote(host)))
    lu.assertEquals(result.status, 0, result.err)
    for _, row in ipairs(PACKAGES) do
        local done = io.open(host .. "/" .. row[1] .. ".done") ~= nil
        lu.assertEquals(done, not row[3], row[1])
    end
end

function TestPackage.test_removal_has_no_version_check()
    local place = support.directory()
    assert_accepted(support.write(place .. "/A-B-x-1.0.0-1.x.kzu", GOOD))
    assert_refused(support.write(place .. "/Text.kzu", "no archive"), "")
end

function TestPackage.test_of_a_removal_package_only_names_matter()
    local place = support.directory()
    local file = { name = "file", bytes = "x" }
    local twice = zip.pack({ file, file })
    assert_accepted(support.write(place .. "/Twice.kzu", twice))
    assert_refused(support.write(place .. "/Twice.kzp", twice), "")
    assert_refused(support.write(place .. "/Climb.kzu",
        zip.pack({ { name = "../x", bytes = "" } })), "")
end

function TestPackage.test_several_files()
    local place = support.directory()
    local good = support.write(place .. "/Good.kzu", GOOD)
    local bad = support.write(place .. "/Bad.kzu", "")
    local result = support.run(("%s verify %s %s"):format(
        quote(support.stage .. "/kzpack"), quote(good), quote(bad)))
    lu.assertStrContains(result.out, good .. ": accepted\n")
    lu.assertStrContains(result.out, bad .. ": refused: ")
    lu.assertEquals(result.status, 1)
end
