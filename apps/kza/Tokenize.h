// SPDX-License-Identifier: Apache-2.0
//
// Splitting lists. Pure.

#pragma once

#include <wx/string.h>

#include <list>

/// Appends to `out`, in order, the parts of `text` between delimiters. Empty
/// parts are skipped; parts are not trimmed.
void Tokenize(std::list<wxString>& out,
              const wxString& text,
              const wchar_t* delimiters);
