// SPDX-License-Identifier: Apache-2.0
//
// Messages about failures of Lua, and about mistakes in scripts that look like
// success.
//
// Threads: the script thread.

#pragma once

#include <wx/string.h>

struct lua_State;

namespace KzaCore
{
class CLuaInterpreter;
}

/// Writes a failure of Lua to standard error, with a line break, and to the log
/// as an error of the component "Lua".
void ReportLuaFailure(const wxString& report);

/// Describes the last script's result when it is no status, as the rest of a
/// sentence that begins "'main' returned"; empty when it is one: nothing, nil,
/// or a whole number from 0 to 255, which may be a text.
///
/// \param lua  Has the script's first result on top of its stack.
wxString DescribeOddResult(KzaCore::CLuaInterpreter& lua);

/// Describes the problem of the application's module, the global
/// `kzaAppModule`, as the rest of a sentence that begins with its name; empty
/// when it is a table with at least one of the functions that the agent calls.
wxString DescribeOddModule(lua_State* L);
