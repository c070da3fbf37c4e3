// SPDX-License-Identifier: Apache-2.0
//
// To find the user's language, the framework builds a table of all languages
// and searches every directory of catalogues on the host. That takes a third of
// the time until a script runs. Where its texts need no translation, as in most
// services, only the C library's locale is adopted.

#include "startup/ProcessLocale.h"

#include <clocale>
#include <cstdlib>
#include <cstring>

bool NeedsNoTranslation(const char* messages, const char* language)
{
    if (language != nullptr && *language != '\0')
        return false;
    for (const char* name : {"C", "POSIX", "en_US"})
    {
        const std::size_t length = std::strlen(name);
        if (std::strncmp(messages, name, length) == 0 &&
            (messages[length] == '\0' || messages[length] == '.'))
            return true;
    }
    return false;
}

CProcessLocale::~CProcessLocale()
{
    if (!m_before.empty())
        setlocale(LC_ALL, m_before.c_str());
}

void CProcessLocale::Adopt()
{
    const std::string before = setlocale(LC_ALL, nullptr);
    if (setlocale(LC_ALL, "") != nullptr &&
        NeedsNoTranslation(setlocale(LC_MESSAGES, nullptr),
                           std::getenv("LANGUAGE")))
    {
        m_before = before;
        return;
    }
    setlocale(LC_ALL, before.c_str());
    m_locale.Init(wxLANGUAGE_DEFAULT, wxLOCALE_LOAD_DEFAULT);
}
