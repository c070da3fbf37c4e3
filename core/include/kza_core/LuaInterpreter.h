// SPDX-License-Identifier: Apache-2.0
//
// Owner of one Lua state.
//
// Threads: a state is used only by the thread that made it.
//
// Lua is linked in its C++ build: a Lua error unwinds C++ frames and runs
// destructors. A C++ exception that crosses a protected call ends it with
// status -1 and no message, so no C function may let one escape.

#pragma once

#include "kza_core/Export.h"

#include <wx/string.h>

#include <optional>
#include <string>

class wxInputStream;
class wxOutputStream;
struct lua_State;

namespace KzaCore
{

class KZA_API CLuaInterpreter
{
public:
    /// Makes the state. LUA_PATH, LUA_CPATH and LUA_INIT of the environment
    /// are ignored.
    ///
    /// \param reserved       Must be false.
    /// \param name           Reserved for messages; is not kept.
    /// \param openLibraries  Open Lua's standard libraries.
    CLuaInterpreter(bool reserved, const wchar_t* name, bool openLibraries);

    /// Closes the state; finalizers run on the calling thread.
    virtual ~CLuaInterpreter();

    CLuaInterpreter(const CLuaInterpreter&) = delete;
    CLuaInterpreter& operator=(const CLuaInterpreter&) = delete;

    /// The state, never null; owned by this object.
    [[nodiscard]] lua_State* L() { return m_state; }

    /// Sets `package.path` and `package.cpath`, and makes `path` the list that
    /// `require` searches first.
    ///
    /// `package.path` becomes `path`, then `<bin>/lua/?.lua` and
    /// `<bin>/lua/?/init.lua`, then the absolute entries of Lua's compiled-in
    /// default; `package.cpath` likewise with `cpath` and `<bin>/lib/lua/?.so`.
    /// No entry is relative to the current directory unless `path` or `cpath`
    /// names one. Raises a Lua error when the package library is not open.
    ///
    /// \param bin    Directory of the executable; empty to leave out its
    ///               directories.
    /// \param path   Templates separated by ";", may be empty.
    /// \param cpath  Likewise for C modules.
    void SetPackagePaths(const std::string& bin,
                         const std::string& path,
                         const std::string& cpath);

    /// Loads and runs a chunk of Lua source.
    ///
    /// \param in         The source, read to its end.
    /// \param args       The number of its arguments, on top of the stack.
    /// \param results    The number of results to leave on the stack.
    /// \param chunkName  Name shown in messages and tracebacks.
    /// \param out        The stream to which `print` writes while the chunk
    ///                   runs, and which it syncs after each line; null for
    ///                   standard output. Not owned.
    ///
    /// \return 0 with the results on the stack; otherwise Lua's error code with
    ///         only the arguments removed from the stack, and the reason in
    ///         GetErrorInfo().
    int RunScript(wxInputStream& in,
                  int args,
                  int results,
                  const wxString& chunkName,
                  wxOutputStream* out);

    /// The message of the last failure with its traceback; empty when the
    /// last script succeeded. An error value that is not a string is shown
    /// through its `__tostring`, else a table by its fields, else by its type.
    /// For a call of a missing method, a method of a similar name is added.
    [[nodiscard]] wxString GetErrorInfo() const;

    /// Whether the last script succeeded for Lua and returned nil and a text,
    /// which is how Lua's functions say that they failed.
    ///
    /// \param text  Out: that text; untouched when the answer is false.
    [[nodiscard]] bool GetReturnedError(wxString& text) const;

private:
    static int PrintCB(lua_State* L);
    static wxOutputStream* OutputOf(lua_State* L);
    void ReplacePrint();

    lua_State* m_state;
    wxOutputStream* m_out = nullptr;
    std::string m_errorInfo;
    std::optional<std::string> m_returnedError;
};

} // namespace KzaCore
