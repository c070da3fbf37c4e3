// SPDX-License-Identifier: Apache-2.0

#include "Tokenize.h"

void Tokenize(std::list<wxString>& out,
              const wxString& text,
              const wchar_t* delimiters)
{
    std::size_t begin = text.find_first_not_of(delimiters);
    while (begin != wxString::npos)
    {
        const std::size_t end = text.find_first_of(delimiters, begin);
        out.push_back(text.substr(begin, end == wxString::npos ? wxString::npos
                                                               : end - begin));
        begin = end == wxString::npos ? wxString::npos
                                      : text.find_first_not_of(delimiters, end);
    }
}
