-- SPDX-License-Identifier: Apache-2.0
--
-- kza.utf8: texts of files and logs, which may be in no encoding at all.

local lu = require("luaunit")
local utf8 = require("kza.utf8")

local MARK = "\239\191\189"

TestUtf8 = {}

function TestUtf8:test_what_is_valid_stays()
    for _, text in ipairs({ "", "plain\0text", "ä€😀", "\127\194\128\223\191",
        "\224\160\128\237\159\191\238\128\128",
        "\240\144\128\128\244\143\191\191",
    }) do
        lu.assertEquals(utf8.valid(text), text)
    end
end

function TestUtf8:test_each_other_byte_is_replaced()
    for text, expected in pairs({
        ["a\255b"] = "a" .. MARK .. "b",
        ["\128"] = MARK,
        ["\192\128"] = MARK .. MARK, -- a longer form than need be
        ["\224\159\191"] = MARK:rep(3),
        ["\237\160\128"] = MARK:rep(3), -- half a surrogate pair
        ["\244\144\128\128"] = MARK:rep(4), -- beyond U+10FFFF
        ["\226\130"] = MARK:rep(2), -- cut short
        ["\226\130\226\130\172"] = MARK:rep(2) .. "€",
    }) do
        lu.assertEquals(utf8.valid(text), expected)
    end
end

function TestUtf8:test_length_counts_characters()
    lu.assertEquals(utf8.length(""), 0)
    lu.assertEquals(utf8.length("aä€😀"), 4)
end
