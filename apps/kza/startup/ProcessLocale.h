// SPDX-License-Identifier: Apache-2.0
//
// The process's locale and language.
//
// Threads: the main thread, while there is no other.

#pragma once

#include <wx/intl.h>

#include <string>

class CProcessLocale
{
public:
    CProcessLocale() = default;

    /// Restores the C library's locale from before Adopt().
    ~CProcessLocale();

    CProcessLocale(const CProcessLocale&) = delete;
    CProcessLocale& operator=(const CProcessLocale&) = delete;

    /// Adopts the user's default language: its locale for the C library in all
    /// categories, and the framework's messages in that language. A locale that
    /// the host does not have is a warning on standard error. To be called
    /// once.
    void Adopt();

private:
    wxLocale m_locale;    // initialised when messages are to be translated
    std::string m_before; // the locale to restore; empty with `m_locale`
};

/// True when the framework's own texts, which are in American English, need no
/// translation.
///
/// \param messages  The name of the locale for messages, from setlocale().
/// \param language  The variable LANGUAGE, null when it is not set.
[[nodiscard]] bool NeedsNoTranslation(const char* messages,
                                      const char* language);
