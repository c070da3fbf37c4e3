// SPDX-License-Identifier: Apache-2.0
//
// Whether an extension archive was made for this agent.
//
// Threads: any.

#pragma once

#include <wx/string.h>

/// True when the side file of an archive, named like it with ".version"
/// appended, holds the agent's own version; the build is not compared. Else
/// one warning says why.
///
/// \param extensionPath  The archive, which is not looked at.
[[nodiscard]] bool ExtensionVersionMatches(const wxString& extensionPath);
