// SPDX-License-Identifier: Apache-2.0
//
// The parts of the file name of a plugin or removal package.
//
// Packages are named
//   <prefix>-<plugin>-<more fields>-<major>.<minor>.<patch>-<build>.<suffix>
// before their extension. Both functions read the name part alone, that is
// without directory and last extension, and are defined for every text.
//
// Pure: neither function accesses the file system.

#pragma once

#include <wx/string.h>

class wxFileName;

/// The plugin's short name: the second field between dashes. With one dash it
/// is the part after it, without a dash the whole name part.
[[nodiscard]] wxString getPluginName(const wxFileName& package);

/// True when the package may be installed: its version is the agent's own to
/// the letter, or the name has no place for a version.
///
/// The suffix after the last dot is always removed first. A name without a
/// suffix therefore loses the end of its version and is refused.
[[nodiscard]] bool PackageVersionMatches(const wxFileName& package);
