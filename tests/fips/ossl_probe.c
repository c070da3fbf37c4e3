/* SPDX-License-Identifier: Apache-2.0
 *
 * A Lua module of the tests: what the process's OpenSSL does by default.
 */

#include <lauxlib.h>
#include <lua.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

/* digest(name): the provider that the algorithm comes from, nil for none. */
static int digest(lua_State* L)
{
    EVP_MD* const found = EVP_MD_fetch(NULL, luaL_checkstring(L, 1), NULL);
    if (found == NULL)
        lua_pushnil(L);
    else
        lua_pushstring(L, OSSL_PROVIDER_get0_name(EVP_MD_get0_provider(found)));
    EVP_MD_free(found);
    return 1;
}

/* fips(): whether algorithms are to be validated ones by default. */
static int fips(lua_State* L)
{
    lua_pushboolean(L, EVP_default_properties_is_fips_enabled(NULL));
    return 1;
}

__attribute__((visibility("default"))) int luaopen_ossl_probe(lua_State* L)
{
    static const luaL_Reg functions[] = {
        {"digest", digest}, {"fips", fips}, {NULL, NULL}};
    luaL_newlib(L, functions);
    return 1;
}
