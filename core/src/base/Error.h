// SPDX-License-Identifier: Apache-2.0
//
// Reasons of failures as text.
//
// Threads: any. Not for signal handlers.

#pragma once

#include "base/Bytes.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace KzaCore
{

/// The system's text for one of its error numbers, such as "No such file or
/// directory". UTF-8, in the language of the process's locale.
[[nodiscard]] inline std::string SystemErrorText(int code)
{
    // The text comes in the encoding of the locale.
    const std::string text = std::generic_category().message(code);
    const wxString decoded(text.c_str(), wxConvLibc);
    return BytesOfText(decoded.empty() ? TextOfBytes(text) : decoded);
}

/// For functions that answer false and set a reason: sets it, returns false.
inline bool Fail(std::string& error, std::string reason)
{
    error = std::move(reason);
    return false;
}

/// The same after a failed system call: the reason is `what`, a colon and the
/// text for errno.
inline bool FailBySystem(std::string& error, std::string_view what)
{
    const int code = errno;
    error = std::string(what) + ": " + SystemErrorText(code);
    return false;
}

} // namespace KzaCore
