// SPDX-License-Identifier: Apache-2.0
//
// What is said of Lua's failures, and of mistakes that look like success.
//
// Threads: the script thread.

#pragma once

#include <wx/string.h>

struct lua_State;

namespace KzaCore
{
class CLuaInterpreter;
}

/// Writes a failure of Lua's to standard error, with a line break, and to the
/// log: an error of the component "Lua".
void ReportLuaFailure(const wxString& report);

/// What the last script returned as its status, as the rest of a sentence that
/// begins "'main' returned"; empty when that makes a status: nothing, nil, or a
/// whole number from 0 to 255, which may be a text.
///
/// \param lua  Has the script's first result on top of its stack.
wxString DescribeOddResult(KzaCore::CLuaInterpreter& lua);

/// What is wrong with the application's module, the global `kzaAppModule`, as
/// the rest of a sentence that begins with its name; empty when it is a table
/// that has one of the functions that the agent calls.
wxString DescribeOddModule(lua_State* L);
