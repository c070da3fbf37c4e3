// SPDX-License-Identifier: Apache-2.0
//
// A Lua table as one line of text.
//
// Threads: the one that owns the state.

#pragma once

#include <string>

struct lua_State;

namespace KzaCore
{

/// The fields of the table at `index` and of the tables in it, such as
/// `{code = 5, where = {file = "a", line = 3}}`, without calling any
/// metamethod.
///
/// Fields are sorted: numbers first, then strings. After 20 of them, those of
/// the inner tables included, and in place of a field whose key is of another
/// type, `…` is shown, and also for the fields of a table in an inner table.
std::string DescribeTable(lua_State* L, int index);

} // namespace KzaCore
