// SPDX-License-Identifier: Apache-2.0
//
// The options of the command line, as the framework's parser takes them.

#pragma once

#include <wx/string.h>

#include <vector>

class wxCmdLineParser;

/// Adds the agent's options to a parser that has the framework's own.
void DeclareOptions(wxCmdLineParser& parser);

/// An option or switch of a command line.
struct CGivenOption
{
    wxString name; ///< the long one
    bool hasValue; ///< false for a switch
    wxString value;
};

/// The options of a command line, in its order, without the framework's own
/// switches. An older framework keeps only the last value of an option, so each
/// option is there once.
///
/// \param parser  Has parsed the command line.
[[nodiscard]] std::vector<CGivenOption> GivenOptions(
    const wxCmdLineParser& parser);
