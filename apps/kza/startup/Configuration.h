// SPDX-License-Identifier: Apache-2.0
//
// The configuration files: `<work>/kz_agent.ini` over the host's own, one for
// all names under which the program runs.
//
// Threads: the main thread, during start-up.

#pragma once

#include <wx/string.h>

#include <string>
#include <vector>

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// Where a configuration comes from.
struct CConfigurationFiles
{
    wxString local;  ///< full path, wins over the global one; empty for none
    wxString global; ///< full path
};

/// Reads the files and makes them the process's configuration in the place of
/// the one before. One that is missing or cannot be read counts as empty.
void OpenConfiguration(const wxString& application,
                       const wxString& vendor,
                       const CConfigurationFiles& files);

/// Sets a key of the domain for each entry of the group `[domain]`.
///
/// Entries are the same whatever the case of their letters, keys are not: the
/// key is written as the file does whose value counts. An entry for a key that
/// the agent sets itself, or that the configuration cannot look up, is a
/// warning and sets nothing.
///
/// \param files     Those of the process's configuration.
/// \param stronger  The key that the command line has set, which keeps its
///                  value; empty for none.
void ApplySettings(const CConfigurationFiles& files,
                   const std::string& stronger,
                   KzaCore::CDom& dom);

/// Writes the keys that follow from other entries: `app.fipsmode` where there
/// is a "FIPSMode", `app.trace+`, `app.fulldump`, and the settings of SQLite.
///
/// \param application   Names the entry of an application other than the agent
///                      itself that lists its trace components.
/// \param isDefaultApp  True for the agent itself.
void ApplyConfiguration(const wxString& application,
                        bool isDefaultApp,
                        KzaCore::CDom& dom);

/// An entry of a configuration file, as the framework reads it.
struct CConfigurationEntry
{
    wxString group; ///< joined by "/", empty for entries before any group
    wxString name;
    wxString value;
};

/// The entries of one file, none when it cannot be read. Of entries that the
/// framework takes for the same, the one that counts. What is no entry is
/// passed over without a word.
[[nodiscard]] std::vector<CConfigurationEntry> EntriesOf(const wxString& file);
