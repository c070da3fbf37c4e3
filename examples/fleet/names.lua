-- SPDX-License-Identifier: Apache-2.0
--
-- From the name of a server to its addresses.
--
-- The system's own call for it blocks for as long as a name server does not
-- answer, and nothing can end it. So a child makes it, the program `getent`,
-- and the agent looks whether the child is done.

local names = {}

local function is_address(host)
    return host:find("^%d+%.%d+%.%d+%.%d+$") ~= nil or host:find(":") ~= nil
end

-- The child outlives this call; its answer goes to a file, with an end that
-- tells a whole answer from half a one.
local function ask(host, path)
    os.execute(("{ getent ahosts %s; echo end; } >%s 2>/dev/null </dev/null &")
        :format(host, path))
end

local function answer(path)
    local file = io.open(path)
    local text = file and file:read("*a") or ""
    if file then
        file:close()
    end
    return text:match("^(.*)end\n$")
end

-- Each address once, in the order in which the system prefers them.
local function addresses_in(text)
    local list, seen = {}, {}
    for address in text:gmatch("(%S+)[^\n]*\n") do
        if not seen[address] then
            seen[address] = true
            list[#list + 1] = address
        end
    end
    return list
end

--- The addresses of a host, or nil and why there are none.
---
--- `pause` is called between two looks and answers nil and a message to give
--- up.
function names.addresses(host, pause)
    if is_address(host) then
        return { host }
    end
    -- It becomes a word of the shell.
    if not host:find("^%w[%w._-]*$") then
        return nil, "no name of a host"
    end
    local path = os.tmpname()
    ask(host, path)
    local text, going_on, message
    repeat
        text = answer(path)
        going_on, message = true, nil
        if not text then
            going_on, message = pause()
        end
    until text or not going_on
    os.remove(path)
    if not text then
        return nil, message
    end
    local list = addresses_in(text)
    if #list == 0 then
        return nil, "the name is not known"
    end
    return list
end

return names
