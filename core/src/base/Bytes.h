// SPDX-License-Identifier: Apache-2.0
//
// Conversions between UTF-8 bytes, as the domain and Lua hold them, and the
// framework's strings.
//
// Threads: any.

#pragma once

#include <wx/string.h>

#include <string>
#include <string_view>

namespace KzaCore
{

/// The text of UTF-8 bytes. Bytes that are not UTF-8 are shown one by one, as
/// ISO 8859-1, so that nothing is lost.
[[nodiscard]] inline wxString TextOfBytes(std::string_view bytes)
{
    wxString text = wxString::FromUTF8(bytes.data(), bytes.size());
    if (text.empty() && !bytes.empty())
        text = wxString(bytes.data(), wxConvISO8859_1, bytes.size());
    return text;
}

/// The UTF-8 bytes of a text.
[[nodiscard]] inline std::string BytesOfText(const wxString& text)
{
    const wxScopedCharBuffer bytes = text.utf8_str();
    return {bytes.data(), bytes.length()};
}

/// The characters of a text; valid while the text exists and is unchanged.
[[nodiscard]] inline std::wstring_view CharactersOf(const wxString& text)
{
    return {text.wx_str(), text.length()};
}

} // namespace KzaCore
