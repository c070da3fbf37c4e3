// SPDX-License-Identifier: Apache-2.0
//
// The setting `log.console`, which says what records are repeated on standard
// error.
//
// Threads: any.

#pragma once

#include "kza_core/Dom.h"
#include "kza_core/LogLevel.h"

namespace KzaCore
{

/// Each level includes the records of every worse one.
enum class EConsoleLevel
{
    Nothing,
    Error,
    Warning,
    Message,
    Info, ///< with verbose records
    All,
    WarningOnTerminal ///< warnings and errors while it is a terminal
};

/// The meaning of a value of the setting: the name of a level, or a switch,
/// true for all records and false for none, which may be text too. An unset or
/// senseless value means WarningOnTerminal.
EConsoleLevel ConsoleLevelOf(const DomValue& setting);

/// The properties of a record that decide whether it is repeated.
struct CRecordKind
{
    ELogLevel level;
    EConsole console;
};

/// Whether a record is repeated. Checks each time whether standard error is a
/// terminal, because a daemon leaves its terminal.
bool IsForConsole(const CRecordKind& kind, EConsoleLevel most);

} // namespace KzaCore
