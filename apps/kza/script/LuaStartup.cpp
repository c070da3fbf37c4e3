// SPDX-License-Identifier: Apache-2.0

#include "script/LuaStartup.h"

#include "startup/Configuration.h"
#include "startup/Options.h"

#include "base/Bytes.h"
#include "lua/LuaGuard.h"
#include "lua/LuaPush.h"

#include <lua.hpp>
#include <wx/app.h>
#include <wx/cmdline.h>
#include <wx/msgout.h>

#include <string>
#include <vector>

using KzaCore::BytesOfText;
using KzaCore::Guarded;
using KzaCore::PushFailure;
using KzaCore::PushText;
using KzaCore::TextOfBytes;

namespace
{

constexpr wchar_t kDefaultName[] = L"kz_agent";

// Collects the parser's messages to the user while the object exists.
class CParserOutput : public wxMessageOutput
{
public:
    CParserOutput() : m_before(Set(this)) {}
    ~CParserOutput() override { Set(m_before); }

    void Output(const wxString& text) override { m_text += text; }

    [[nodiscard]] const wxString& Text() const { return m_text; }

private:
    wxMessageOutput* const m_before;
    wxString m_text;
};

void SetText(lua_State* L, const char* field, const wxString& text)
{
    PushText(L, BytesOfText(text));
    lua_setfield(L, -2, field);
}

// The words of a table, after a name for the program.
std::vector<std::wstring> CheckWords(lua_State* L, int index)
{
    luaL_checktype(L, index, LUA_TTABLE);
    std::vector<std::wstring> words = {kDefaultName};
    for (std::size_t i = 1; i <= lua_rawlen(L, index); ++i)
    {
        lua_rawgeti(L, index, static_cast<int>(i));
        std::size_t size = 0;
        const char* const word = lua_tolstring(L, -1, &size);
        luaL_argcheck(L, word != nullptr, index, "words expected");
        words.push_back(TextOfBytes({word, size}).ToStdWstring());
        lua_pop(L, 1);
    }
    return words;
}

void SetWords(wxCmdLineParser& parser, std::vector<std::wstring>& words)
{
    std::vector<wchar_t*> pointers;
    for (std::wstring& word : words)
        pointers.push_back(word.data());
    parser.SetCmdLine(static_cast<int>(pointers.size()), pointers.data());
}

void PushOptions(lua_State* L, const wxCmdLineParser& parser)
{
    lua_newtable(L);
    int index = 0;
    for (const CGivenOption& option : GivenOptions(parser))
    {
        lua_createtable(L, 0, 2);
        SetText(L, "name", option.name);
        if (option.hasValue)
            SetText(L, "value", option.value);
        lua_rawseti(L, -2, ++index);
    }
    std::vector<std::string> words;
    for (std::size_t i = 0; i < parser.GetParamCount(); ++i)
        words.push_back(BytesOfText(parser.GetParam(i)));
    KzaCore::PushTexts(L, words);
    lua_setfield(L, -2, "words");
}

// options(words): the options in a command line without its first word.
int Options(lua_State* L)
{
    std::vector<std::wstring> words = CheckWords(L, 1);
    wxCmdLineParser parser;
    wxTheApp->OnInitCmdLine(parser);
    SetWords(parser, words);
    const CParserOutput output;
    const int result = parser.Parse(false);
    if (result < 0)
        return PushFailure(L, "help is asked for, which starts nothing");
    if (result > 0)
        return PushFailure(L, BytesOfText(output.Text().Strip(wxString::both)));
    PushOptions(L, parser);
    return 1;
}

// configuration(path): the entries of one file.
int Configuration(lua_State* L)
{
    const wxString path = TextOfBytes(KzaCore::CheckPath(L, 1));
    lua_newtable(L);
    int index = 0;
    for (const CConfigurationEntry& entry : EntriesOf(path))
    {
        lua_createtable(L, 0, 3);
        SetText(L, "group", entry.group);
        SetText(L, "name", entry.name);
        SetText(L, "value", entry.value);
        lua_rawseti(L, -2, ++index);
    }
    return 1;
}

int Open(lua_State* L)
{
    static const luaL_Reg kFunctions[] = {
        {"options", Guarded<Options>},
        {"configuration", Guarded<Configuration>},
        {nullptr, nullptr}};
    luaL_newlib(L, kFunctions);
    return 1;
}

} // namespace

void PreloadLuaStartup(lua_State* L)
{
    luaL_getsubtable(L, LUA_REGISTRYINDEX, "_PRELOAD");
    lua_pushcfunction(L, Open);
    lua_setfield(L, -2, "kza.startup");
    lua_pop(L, 1);
}
