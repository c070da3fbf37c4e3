-- SPDX-License-Identifier: Apache-2.0
--
-- The pages for authors, followed word for word.

local lu = require("luaunit")
local follow = require("walkthrough")

local function assert_follows(page)
    local followed, report = follow(page)
    if not followed then
        lu.fail(report)
    end
end

TestPages = {}

function TestPages:test_guide()
    assert_follows("docs/authors/guide.md")
end

function TestPages:test_modules()
    assert_follows("docs/authors/modules.md")
end

function TestPages:test_threads_and_signals()
    assert_follows("docs/authors/threads_and_signals.md")
end

function TestPages:test_errors()
    assert_follows("docs/authors/errors.md")
end
