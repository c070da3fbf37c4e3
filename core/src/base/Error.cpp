// SPDX-License-Identifier: Apache-2.0

#include "base/Error.h"

#include "base/Bytes.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace KzaCore
{

std::string SystemErrorText(int code)
{
    // The text comes in the encoding of the locale.
    const std::string text = std::generic_category().message(code);
    const wxString decoded(text.c_str(), wxConvLibc);
    return BytesOfText(decoded.empty() ? TextOfBytes(text) : decoded);
}

bool Fail(std::string& error, std::string reason)
{
    error = std::move(reason);
    return false;
}

bool FailBySystem(std::string& error, std::string_view what)
{
    const int code = errno;
    error = std::string(what) + ": " + SystemErrorText(code);
    return false;
}

} // namespace KzaCore
