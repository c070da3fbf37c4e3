// SPDX-License-Identifier: Apache-2.0

#include "lua/LuaPackageKeys.h"

#include "archive/PrivateKey.h"
#include "base/Bytes.h"
#include "kza_core/PackageKeys.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"

#include <lua.hpp>

#include <new>
#include <string>
#include <vector>

namespace KzaCore
{

namespace
{

constexpr char kClass[] = "kza.host.Keys";

int Signer(lua_State* L)
{
    const auto* const keys =
        static_cast<const CPackageKeys*>(luaL_checkudata(L, 1, kClass));
    std::string signer;
    std::string error;
    const wxString package = TextOfBytes(CheckPath(L, 2));
    if (!FindSigner(package, *keys, signer, error))
        return PushFailure(L, error);
    PushText(L, signer);
    return 1;
}

int Collect(lua_State* L)
{
    static_cast<CPackageKeys*>(luaL_checkudata(L, 1, kClass))->~CPackageKeys();
    return 0;
}

const luaL_Reg kMethods[] = {{"signer", Guarded<Signer>},
                             {"__gc", Guarded<Collect>},
                             {nullptr, nullptr}};

CPackageKeys& PushKeys(lua_State* L)
{
    auto* const keys =
        new (lua_newuserdata(L, sizeof(CPackageKeys))) CPackageKeys;
    if (luaL_newmetatable(L, kClass) != 0)
    {
        luaL_setfuncs(L, kMethods, 0);
        lua_pushvalue(L, -1);
        lua_setfield(L, -2, "__index");
    }
    lua_setmetatable(L, -2);
    return *keys;
}

} // namespace

int LuaPackageKeys(lua_State* L)
{
    const wxString directory = TextOfBytes(CheckPath(L, 1));
    std::vector<std::string> passedOver;
    CPackageKeys& keys = PushKeys(L);
    if (keys.Read(directory, passedOver) == CPackageKeys::EResult::Good)
        lua_pushnil(L);
    else
        PushFailure(L, keys.Problem());
    PushTexts(L, passedOver);
    return 3;
}

int LuaNewKey(lua_State* L)
{
    CKeyPair keys;
    std::string error;
    if (!MakeKeyPair(keys, error))
        return PushFailure(L, error);
    PushText(L, keys.privateKey);
    PushText(L, keys.publicKey);
    return 2;
}

int LuaSign(lua_State* L)
{
    const std::string package = CheckPath(L, 1);
    std::size_t size = 0;
    const char* const key = luaL_checklstring(L, 2, &size);
    std::string signature;
    std::string error;
    if (!SignFile(package, {key, size}, signature, error))
        return PushFailure(L, error);
    PushText(L, signature);
    return 1;
}

} // namespace KzaCore
