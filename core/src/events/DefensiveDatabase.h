// SPDX-License-Identifier: Apache-2.0
//
// Databases whose content may come from another user.
//
// Threads: the one that uses the connection.

#pragma once

struct sqlite3;

namespace KzaCore
{

/// Prevents a database from running code that its schema contains: no trigger
/// and no view is run, functions with side effects cannot be called from the
/// schema, and SQL cannot damage the file. Call it before the first statement.
///
/// \return SQLite's code.
[[nodiscard]] int MakeDefensive(sqlite3* db);

} // namespace KzaCore
