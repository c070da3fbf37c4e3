-- SPDX-License-Identifier: Apache-2.0
--
-- The results of tests as a file in the form that JUnit made common.

local files = require("kza.files")
local host = require("kza.host")
local lu = require("luaunit")
local utf8 = require("kza.utf8")

local Junit = lu.genericOutput.new()
local Junit_meta = { __index = Junit }

local ENTITIES = { ["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;",
    ['"'] = "&quot;", ["\n"] = "&#10;", ["\t"] = "&#9;" }

-- Text for an element or an attribute. XML has no way to write the other
-- control characters.
local function escape(text)
    text = utf8.valid(tostring(text)):gsub("[&<>\"\n\t]", ENTITIES)
    return (text:gsub("%c", "?"))
end

-- The application may have a locale with another decimal point.
local function seconds_text(seconds)
    return (("%.3f"):format(seconds):gsub(",", "."))
end

function Junit:startTest()
    self.started = host.clock()
end

function Junit:endTest(node)
    node.seconds = host.clock() - self.started
end

local function outcome(node)
    if node:isSkipped() then
        return ('<skipped message="%s"/>'):format(escape(node.msg or ""))
    end
    local kind = node:isFailure() and "failure" or "error"
    return ('<%s message="%s">%s</%s>'):format(kind, escape(node.msg),
        escape(node.stackTrace), kind)
end

local function case(node)
    local head = ('    <testcase classname="%s" name="%s" time="%s"'):format(
        escape(node.className), escape(node.testName),
        seconds_text(node.seconds or 0))
    if node:isSuccess() then
        return head .. "/>\n"
    end
    return head .. ">" .. outcome(node) .. "</testcase>\n"
end

function Junit:endSuite()
    local result = self.result
    local counts = ('tests="%d" failures="%d" errors="%d" skipped="%d"'):format(
        #result.allTests, result.failureCount, result.errorCount,
        result.skippedCount)
    local parts = { '<?xml version="1.0" encoding="UTF-8"?>\n<testsuites ',
        counts, '>\n  <testsuite name="', escape(dom:Get("app.name")), '" ',
        counts, (' time="%s" timestamp="%s">\n'):format(
            seconds_text(host.clock() - self.begun), result.startIsodate) }
    for _, node in ipairs(result.allTests) do
        parts[#parts + 1] = case(node)
    end
    parts[#parts + 1] = "  </testsuite>\n</testsuites>\n"
    local written, message = files.write(self.path, table.concat(parts))
    if not written then
        self.say("%s", message)
        self.runner.failures_outside = self.runner.failures_outside + 1
    end
end

--- An output for LuaUnit that writes to the file of a path.
---@param path string
---@param say fun(format: string, ...)
return function(path, say)
    return { new = function(runner)
        local output = lu.genericOutput.new(runner)
        output.path, output.say = path, say
        output.begun = host.clock()
        return setmetatable(output, Junit_meta)
    end }
end
