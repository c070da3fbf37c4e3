-- SPDX-License-Identifier: Apache-2.0
--
-- The results of tests in the form of the Test Anything Protocol.

local lu = require("luaunit")

local Tap = lu.genericOutput.new()
local Tap_meta = { __index = Tap }

-- Text in a comment, each of its lines.
local function comment(text)
    return "#   " .. tostring(text):gsub("\n", "\n#   ") .. "\n"
end

-- In a name, "#" would begin a directive.
local function plain(text)
    return (tostring(text):gsub("[\r\n]", " "):gsub("#", "\\#"))
end

function Tap:startSuite()
    self.file:write(("1..%d\n"):format(self.result.selectedCount))
    self.file:flush()
end

function Tap:endTest(node)
    local ok = node:isSuccess() or node:isSkipped()
    self.file:write(("%s %d - %s"):format(
        ok and "ok" or "not ok", node.number, plain(node.testName)))
    if node:isSkipped() then
        self.file:write(" # SKIP ", plain(node.msg or ""))
    end
    self.file:write("\n")
    if not ok then
        self.file:write(comment(node.msg), comment(node.stackTrace))
    end
    self.file:flush()
end

function Tap:endSuite()
    self.file:write("# ", lu.LuaUnit.statusLine(self.result), "\n")
    self.file:flush()
end

--- An output for LuaUnit that writes to a file.
---@param file file*
return function(file)
    return { new = function(runner)
        local output = lu.genericOutput.new(runner)
        output.file = file
        return setmetatable(output, Tap_meta)
    end }
end
