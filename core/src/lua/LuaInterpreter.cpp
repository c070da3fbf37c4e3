// SPDX-License-Identifier: Apache-2.0

#include "kza_core/LuaInterpreter.h"

#include "base/Bytes.h"
#include "crash/CrashLua.h"
#include "kza_core/Log2Disk.h"
#include "lua/ErrorReport.h"
#include "lua/LuaGuard.h"
#include "lua/LuaHost.h"
#include "lua/LuaProbe.h"
#include "lua/LuaProcess.h"
#include "lua/LuaSearchers.h"

#include <lua.hpp>
#include <wx/debug.h>
#include <wx/stream.h>

#include <array>
#include <cstdio>
#include <new>

namespace KzaCore
{

namespace
{

int PanicCB(lua_State* L)
{
    const char* const message = lua_tostring(L, -1);
    LogToDisk(ELogLevel::Error, "Lua",
              "Outside of a protected call: " +
                  TextOfBytes(message == nullptr ? "(not a string)" : message));
    return 0; // Lua aborts the process
}

// Reads a chunk's source piece by piece. The pieces are small, because they are
// on the stack: a new thread's stack takes no memory before it is used.
struct CSource
{
    wxInputStream& in;
    std::array<char, 1024> buffer;
};

const char* ReadSourceCB(lua_State* /*L*/, void* data, size_t* size)
{
    auto* const source = static_cast<CSource*>(data);
    source->in.Read(source->buffer.data(), source->buffer.size());
    *size = source->in.LastRead();
    return *size == 0 ? nullptr : source->buffer.data();
}

// Its address is the registry key of the interpreter.
constexpr char kSelf = 0;

// Pushes the line that `print` writes for its arguments.
void PushLine(lua_State* L)
{
    const int count = lua_gettop(L);
    lua_getglobal(L, "tostring");
    luaL_Buffer line;
    luaL_buffinit(L, &line);
    for (int i = 1; i <= count; ++i)
    {
        if (i > 1)
            luaL_addchar(&line, '\t');
        lua_pushvalue(L, count + 1);
        lua_pushvalue(L, i);
        lua_call(L, 1, 1);
        if (lua_isstring(L, -1) == 0)
            luaL_error(L, "'tostring' must return a string to 'print'");
        luaL_addvalue(&line);
    }
    luaL_addchar(&line, '\n');
    luaL_pushresult(&line);
}

// The text that a script whose results begin at `first` returned after nil.
std::optional<std::string> ErrorAmong(lua_State* L, int first)
{
    if (!lua_isnil(L, first) || lua_type(L, first + 1) != LUA_TSTRING)
        return std::nullopt;
    size_t length = 0;
    const char* const text = lua_tolstring(L, first + 1, &length);
    return std::string(text, length);
}

std::string TextOf(lua_State* L, int status)
{
    // Lua reports a C++ exception without a message; the value on top of the
    // stack is not one.
    if (status < 0)
        return "a C++ exception ended the chunk";
    size_t length = 0;
    const char* const text = lua_tolstring(L, -1, &length);
    return text == nullptr ? std::string("(no message)")
                           : std::string(text, length);
}

} // namespace

CLuaInterpreter::CLuaInterpreter(bool reserved,
                                 const wchar_t* /*name*/,
                                 bool openLibraries)
    : m_state(luaL_newstate())
{
    wxASSERT(!reserved);
    wxUnusedVar(reserved);
    if (m_state == nullptr)
        throw std::bad_alloc();
    lua_atpanic(m_state, PanicCB);
    RememberLuaState(m_state);
    if (!openLibraries)
        return;

    // The agent runs as root and does not trust the environment with the places
    // where code is loaded from. This registry name makes Lua ignore LUA_PATH
    // and LUA_CPATH.
    lua_pushboolean(m_state, 1);
    lua_setfield(m_state, LUA_REGISTRYINDEX, "LUA_NOENV");
    luaL_openlibs(m_state);
    InstallLuaProcess(m_state);
    PreloadLuaHost(m_state);
    PreloadLuaProbe(m_state);
    ReplacePrint();
}

CLuaInterpreter::~CLuaInterpreter()
{
    // Before lua_close() runs finalizers: a dump must not ask a state that is
    // being closed.
    ForgetLuaState(m_state);
    lua_close(m_state);
}

void CLuaInterpreter::SetPackagePaths(const std::string& bin,
                                      const std::string& path,
                                      const std::string& cpath)
{
    SetSearchPaths(m_state, bin, path, cpath);
}

int CLuaInterpreter::RunScript(wxInputStream& in,
                               int args,
                               int results,
                               const wxString& chunkName,
                               wxOutputStream* out)
{
    lua_State* const L = m_state;
    const int base = lua_gettop(L) - args;
    m_errorInfo.clear();
    m_returnedError.reset();

    lua_pushcfunction(L, ErrorReportCB);
    lua_insert(L, base + 1);

    CSource source{in, {}};
    const std::string name = "=" + std::string(chunkName.utf8_str());
    int status = lua_load(L, ReadSourceCB, &source, name.c_str(), nullptr);
    if (status == LUA_OK)
    {
        lua_insert(L, base + 2);
        wxOutputStream* const outer = m_out;
        m_out = out;
        status = lua_pcall(L, args, LUA_MULTRET, base + 1);
        m_out = outer;
    }
    if (status != LUA_OK)
    {
        m_errorInfo = TextOf(L, status);
        lua_settop(L, base);
        return status;
    }
    lua_remove(L, base + 1);
    m_returnedError = ErrorAmong(L, base + 1);
    if (results != LUA_MULTRET)
        lua_settop(L, base + results);
    return 0;
}

wxString CLuaInterpreter::GetErrorInfo() const
{
    return TextOfBytes(m_errorInfo); // a message may quote any bytes
}

bool CLuaInterpreter::GetReturnedError(wxString& text) const
{
    if (m_returnedError)
        text = TextOfBytes(*m_returnedError);
    return m_returnedError.has_value();
}

// Like Lua's own print, this is a function without upvalues that uses the
// present global `tostring`; but it writes to the output of the running chunk.
// The line has been written to the descriptor when print returns: it is not
// lost in a crash, and comes before the output of a child that is started
// later.
int CLuaInterpreter::PrintCB(lua_State* L)
{
    PushLine(L);
    size_t length = 0;
    const char* const text = lua_tolstring(L, -1, &length);
    wxOutputStream* const out = OutputOf(L);
    if (out != nullptr)
    {
        out->Write(text, length);
        out->Sync();
        return 0;
    }
    fwrite(text, 1, length, stdout);
    fflush(stdout);
    return 0;
}

// The output stream of the chunk that runs in a state; null for standard
// output, and when a script has removed the interpreter from the registry.
wxOutputStream* CLuaInterpreter::OutputOf(lua_State* L)
{
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kSelf);
    const auto* const self = static_cast<CLuaInterpreter*>(
        lua_islightuserdata(L, -1) ? lua_touserdata(L, -1) : nullptr);
    lua_pop(L, 1);
    return self == nullptr ? nullptr : self->m_out;
}

void CLuaInterpreter::ReplacePrint()
{
    lua_pushlightuserdata(m_state, this);
    lua_rawsetp(m_state, LUA_REGISTRYINDEX, &kSelf);
    lua_pushcfunction(m_state, Guarded<PrintCB>);
    lua_setglobal(m_state, "print");
}

} // namespace KzaCore
