-- SPDX-License-Identifier: Apache-2.0
--
-- The first page and the pages for operators, followed word for word.

local lu = require("luaunit")
local support = require("support")
local follow = require("walkthrough")

local function assert_follows(page, is_installed)
    local followed, report = follow(page, is_installed)
    if not followed then
        lu.fail(report)
    end
end

TestPages = {}

local PAGES = { "README.md", "docs/operations.md",
    "docs/operations_packages.md", "docs/something_is_wrong.md" }

-- A block that cannot be followed says so by its mark, "sh" or "text"; one
-- without a mark would be left out unseen.
function TestPages:test_no_command_is_left_out()
    for _, page in ipairs(PAGES) do
        local number, is_open = 0, false
        for line in io.lines(support.source .. "/" .. page) do
            number = number + 1
            local mark = line:match("^```(.*)$")
            local place = ("%s:%d: %s"):format(page, number, line)
            if mark then
                lu.assertTrue(is_open or mark ~= "", place)
                is_open = not is_open
            elseif not is_open then
                lu.assertNil(line:match("^    %$ ")
                    or line:match("^    kz%a+ "), place)
            end
        end
    end
end

function TestPages:test_readme()
    assert_follows("README.md")
end

function TestPages:test_operations()
    assert_follows("docs/operations.md", true)
end

function TestPages:test_packages()
    assert_follows("docs/operations_packages.md", true)
end

function TestPages:test_something_is_wrong()
    assert_follows("docs/something_is_wrong.md", true)
end
