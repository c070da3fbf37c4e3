// SPDX-License-Identifier: Apache-2.0
//
// Start and end of the SQLite library for the process.
//
// Threads: the main thread, before others exist and after they have ended.

#pragma once

#include "kza_core/Export.h"

namespace KzaCore
{

class CDom;

class KZA_API CSqliteDatabase
{
public:
    /// Applies the domain's integers whose keys begin with `sqlite.config` and
    /// starts the library. An unknown key, or a value that SQLite refuses, is
    /// a warning; the library starts all the same.
    static void InitializeSQLite(CDom& dom);

    /// Closes the agent's own database of events and shuts SQLite down. No
    /// database may be used afterwards.
    static void ShutdownSQLite();
};

} // namespace KzaCore
