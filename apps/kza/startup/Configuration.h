// SPDX-License-Identifier: Apache-2.0
//
// The configuration files: `<work>/kz_agent.ini` over the host's own, one for
// all names under which the program runs.
//
// Threads: the main thread, during start-up.

#pragma once

class wxString;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Reads the files that `app.path.ini` and `app.path.ini.global` name and
/// installs them as the process's configuration in the place of the one
/// before. A file that is missing or cannot be read counts as empty.
void OpenConfiguration(const wxString& application,
                       const wxString& vendor,
                       const KzaCore::CDom& dom);

/// Writes the keys that follow from the process's configuration:
/// `app.fipsmode` where it has the entry "FIPSMode", `app.trace+`,
/// `app.fulldump`, and the settings of SQLite.
///
/// \param application     Names the entry of an application other than the
///                        agent itself that lists its trace components.
/// \param isDefaultApp  True for the agent itself.
void ApplyConfiguration(const wxString& application,
                        bool isDefaultApp,
                        KzaCore::CDom& dom);
