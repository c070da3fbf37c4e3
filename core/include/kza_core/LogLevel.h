// SPDX-License-Identifier: Apache-2.0
//
// What is said about a log record beside its text.

#pragma once

namespace KzaCore
{

/// Levels of a record as the file names them.
enum class ELogLevel
{
    Error,
    Warning,
    Message,
    Info,
    Verbose,
    Debug,
    Trace
};

/// Whether `log.console` repeats a record on standard error.
enum class EConsole
{
    Repeat,
    Leave ///< the text stands there already
};

} // namespace KzaCore
