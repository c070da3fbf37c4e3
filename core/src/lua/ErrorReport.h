// SPDX-License-Identifier: Apache-2.0
//
// What an error of Lua's becomes for people: its text and where it came from.
//
// Threads: the one that owns the state.

#pragma once

struct lua_State;

namespace KzaCore
{

/// The message handler of a protected call: makes one text of the error value
/// and a traceback. To be called where the error was raised.
///
/// A value that is no string is shown through its `__tostring`, else a table by
/// its fields (DescribeTable.h), else by its type. A call of a method that is
/// not there names the one that may have been meant (MethodHint.h).
int ErrorReportCB(lua_State* L);

} // namespace KzaCore
