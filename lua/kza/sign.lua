-- SPDX-License-Identifier: Apache-2.0
--
-- Makes keys, signs packages, and tells who signed them.
--
-- A failure is raised as an error whose text is meant for the user.

local files = require("kza.files")
local host = require("kza.host")

local sign = {}

local function must(value, message)
    if not value then
        error(message, 0)
    end
    return value
end

--- Makes a key: its private half in NAME.key, for its owner alone, its public
--- half in NAME.pem. Neither may exist.
---@param name string  May have a directory in front.
---@return string[] paths  Of the two files.
function sign.keygen(name)
    local private, public = host.new_key()
    must(private, public)
    local private_path, public_path = name .. ".key", name .. ".pem"
    must(host.write_new(private_path, private, true))
    local written, message = host.write_new(public_path, public)
    if not written then
        os.remove(private_path)
        error(message, 0)
    end
    return { private_path, public_path }
end

--- Signs a package, whose signature is replaced when there is one.
---@param package string
---@param key string  Path of the private key.
---@return string path  Of the signature.
function sign.sign(package, key)
    local signature, message = host.sign(package, must(files.read(key)))
    if not signature then
        error(("%s: %s"):format(package, message), 0)
    end
    local path = package .. ".sig"
    must(files.write(path, signature))
    return path
end

--- Reads the public keys in a directory, as the agent does.
---@param directory string
---@return fun(package: string): string?, string? signer_of  Returns the name
---        of the key that signed a package, or nil and why it is refused.
---@return string[] warnings  About files that are no key.
function sign.read_keys(directory)
    -- The agent takes an absolute path alone.
    local keys, message, warnings =
        host.keys(host.real_path(directory) or directory)
    return function(package)
        if not keys then
            return nil, "its signature cannot be checked: " .. message
        end
        return keys:signer(package)
    end, warnings
end

return sign
