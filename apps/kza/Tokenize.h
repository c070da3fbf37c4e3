// SPDX-License-Identifier: Apache-2.0
//
// Splitting of lists. Pure.

#pragma once

#include <wx/string.h>

#include <list>

/// Appends to `out`, in order, every longest run of characters of `text` that
/// holds none of the delimiters. Empty runs are skipped, nothing is trimmed.
void Tokenize(std::list<wxString>& out,
              const wxString& text,
              const wchar_t* delimiters);
