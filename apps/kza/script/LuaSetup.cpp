// SPDX-License-Identifier: Apache-2.0
//
// Step: the preparation of the Lua state for the application.
//
// Runs once per interpreter, on the script thread, inside a protected call:
// every failure here is a Lua error.

#include "AgentApp.h"
#include "script/LuaStartup.h"

#include "kza_core/Dom.h"
#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>
#include <wx/debug.h>

#include <exception>

namespace DomKey = KzaCore::DomKey;

namespace
{

void SetDomainGlobals(lua_State* L, KzaCore::CDom* dom)
{
    KzaCore::PushDom(L, dom);
    lua_pushvalue(L, -1);
    lua_setglobal(L, "dom0");
    lua_setglobal(L, "dom");
}

} // namespace

int SetupLua(lua_State* L)
{
    auto* const pThis =
        static_cast<CAgentApp*>(lua_touserdata(L, lua_upvalueindex(1)));
    wxASSERT(pThis && (L == pThis->L()));
    try
    {
        return pThis->SetupLua();
    }
    catch (const std::exception& error)
    {
        lua_pushstring(L, error.what());
    }
    return lua_error(L);
}

lua_State* CAgentApp::L() const
{
    return m_lua->L();
}

int CAgentApp::SetupLua()
{
    lua_State* const state = L();
    luaL_checkversion_(state, 502);

    const std::string cpath = m_dom->Get(DomKey::kLuaCPath);
    const std::string path = m_dom->Get(DomKey::kLuaPath);
    const std::string bin(InstallationDirectory().utf8_str());
    m_lua->SetPackagePaths(bin, path, cpath);
    SetDomainGlobals(state, m_dom);
    m_dom->RegisterLoader(state);
    PreloadLuaStartup(state);
    SetArguments();
    return 0;
}

// Sets the global `arg` as the stand-alone interpreter does, with the
// application's name in the place of the script: words before "--" have
// negative indices.
void CAgentApp::SetArguments()
{
    lua_State* const state = L();
    int split = 0;
    while (split < argc && wxString(argv[split]) != "--")
        ++split;

    luaL_checkstack(state, argc, "too many arguments to script");
    lua_createtable(state, argc, 0);
    for (int i = 0; i < argc; ++i)
    {
        const wxString word = i == split ? GetAppName() : wxString(argv[i]);
        const wxScopedCharBuffer bytes = word.utf8_str();
        lua_pushlstring(state, bytes.data(), bytes.length());
        lua_rawseti(state, -2, i - split);
    }
    if (split == argc)
    {
        // The buffer may belong to the text, so the text must exist for as
        // long.
        const wxString name = GetAppName();
        const wxScopedCharBuffer bytes = name.utf8_str();
        lua_pushlstring(state, bytes.data(), bytes.length());
        lua_rawseti(state, -2, 0);
    }
    lua_setglobal(state, "arg");
}
