// SPDX-License-Identifier: Apache-2.0
//
// The keys by which packages may be signed, for Lua.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// The Lua function keys(directory): the keys in the directory, or nil and the
/// reason why every signature is refused; then, always third, an array of texts
/// about files that were passed over.
///
///     keys:signer(package)   name of the key that signed the package, or nil
///                            and the reason why its signature is refused
int LuaPackageKeys(lua_State* L);

/// The Lua function new_key(): the private and the public half of a new key, as
/// PEM, or nil and the reason.
int LuaNewKey(lua_State* L);

/// The Lua function sign(package, private): the signature of a file by a
/// private key in PEM, or nil and the reason.
int LuaSign(lua_State* L);

} // namespace KzaCore
