// SPDX-License-Identifier: Apache-2.0
//
// Reasons of failures as text.
//
// Threads: any. Not for signal handlers.

#pragma once

#include <string>
#include <string_view>

namespace KzaCore
{

/// The system's text for one of its error numbers, such as "No such file or
/// directory". UTF-8, in the language of the process's locale.
[[nodiscard]] std::string SystemErrorText(int code);

/// For functions that answer false and set a reason: sets it, returns false.
bool Fail(std::string& error, std::string reason);

/// The same after a failed system call: the reason is `what`, a colon and the
/// text for errno.
bool FailBySystem(std::string& error, std::string_view what);

} // namespace KzaCore
