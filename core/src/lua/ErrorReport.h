// SPDX-License-Identifier: Apache-2.0
//
// The report of a Lua error for readers: its text and its traceback.
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
/// its fields (DescribeTable.h), else by its type. For a call of a missing
/// method, the text names a method of a similar name (MethodHint.h).
int ErrorReportCB(lua_State* L);

} // namespace KzaCore
