// SPDX-License-Identifier: Apache-2.0
//
// Which records are repeated on standard error: the setting `log.console`.
//
// Threads: any.

#pragma once

#include "kza_core/Dom.h"
#include "kza_core/LogLevel.h"

namespace KzaCore
{

/// Records of a level include those of every worse one.
enum class EConsoleLevel
{
    Nothing,
    Error,
    Warning,
    Message,
    Info, ///< verbose ones too
    All,
    WarningOnTerminal ///< as long as standard error is a terminal
};

/// What a value of the setting asks for: the name of a level, or a switch,
/// true for all records and false for none, which may be text too. Unset, and
/// when it makes no sense, warnings on a terminal.
EConsoleLevel ConsoleLevelOf(const DomValue& setting);

/// What is known of a record when it may be repeated.
struct CRecordKind
{
    ELogLevel level;
    EConsole console;
};

/// Whether a record is repeated. Looks at standard error anew each time: a
/// daemon closes its terminal.
bool IsForConsole(const CRecordKind& kind, EConsoleLevel most);

} // namespace KzaCore
