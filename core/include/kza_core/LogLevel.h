// SPDX-License-Identifier: Apache-2.0
//
// Properties of a log record beside its text.

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
    Leave ///< the caller has written the text there already
};

} // namespace KzaCore
