// SPDX-License-Identifier: Apache-2.0

#include "Tokenize.h"

#include "base/Bytes.h"
#include "base/SplitList.h"

void Tokenize(std::list<wxString>& out,
              const wxString& text,
              const wchar_t* delimiters)
{
    using KzaCore::CharactersOf;
    for (const std::wstring_view element :
         KzaCore::SplitList<std::wstring_view>(CharactersOf(text), delimiters))
        out.emplace_back(element.data(), element.size());
}
