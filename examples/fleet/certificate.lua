-- SPDX-License-Identifier: Apache-2.0
--
-- Whether a certificate is that of a server. That an authority has signed it
-- says who may speak to the fleet; only the names in it say who is speaking.

local certificate = {}

local ALTERNATIVE_NAMES = "2.5.29.17"

-- "*" stands for one label, the first: *.example.org is not a.b.example.org.
local function matches(pattern, host)
    pattern, host = pattern:lower(), host:lower()
    if pattern:sub(1, 2) == "*." then
        return host:match("^[^.]+(%..+)$") == pattern:sub(2)
    end
    return pattern == host
end

--- Whether the certificate names a host, by name or by address.
function certificate.names(of, host)
    local extension = of:extensions()[ALTERNATIVE_NAMES] or {}
    for _, name in ipairs(extension.dNSName or {}) do
        if matches(name, host) then
            return true
        end
    end
    for _, address in ipairs(extension.iPAddress or {}) do
        if address == host then
            return true
        end
    end
    return false
end

return certificate
