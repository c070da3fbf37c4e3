// SPDX-License-Identifier: Apache-2.0
//
// Rows of the table `agent_event`.
//
// Threads: the one that uses the statement.

#pragma once

#include "events/StoredEvent.h"

struct sqlite3_stmt;

namespace KzaCore
{

/// The columns of a row, in the order of kEventColumns.
inline constexpr char kEventColumns[] =
    "id, number, severity, time, time_ms, text";

[[nodiscard]] CStoredEvent EventOfRow(sqlite3_stmt* row);

} // namespace KzaCore
