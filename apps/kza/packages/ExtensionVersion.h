// SPDX-License-Identifier: Apache-2.0
//
// The check whether an extension archive was made for this agent.
//
// Threads: any.

#pragma once

#include <wx/string.h>

/// True when the side file of an archive, which has its name with ".version"
/// appended, contains the agent's own version; the build is not compared. Else
/// one warning gives the reason.
///
/// \param extensionPath  The archive, which is not opened.
[[nodiscard]] bool ExtensionVersionMatches(const wxString& extensionPath);
