// SPDX-License-Identifier: Apache-2.0
//
// The check whether an extension archive was made for this agent.
//
// Threads: any.

#pragma once

#include "kza_core/Owner.h"

#include <wx/string.h>

/// True when the side file of an archive, which has its name with ".version"
/// appended, contains the agent's own version; the build is not compared. Else
/// the log gives the reason.
///
/// \param extensionPath  The archive, which is not opened.
/// \param owners         For a side file that others can change.
[[nodiscard]] bool ExtensionVersionMatches(const wxString& extensionPath,
                                           KzaCore::EOwnerRule owners);
