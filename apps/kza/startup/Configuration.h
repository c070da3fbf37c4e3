// SPDX-License-Identifier: Apache-2.0
//
// The configuration files: `<work>/kz_agent.ini`, whose entries win, and the
// host's own one. Applications of all names use the same files.
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

/// The paths of the configuration files.
struct CConfigurationFiles
{
    wxString local;  ///< full path, wins over the global one; empty for none
    wxString global; ///< full path
};

/// The files of a configuration that are to be read.
struct CJudgedConfiguration
{
    CConfigurationFiles files;

    /// True when one was left out: `strict.owner` then holds, whatever the rest
    /// says.
    bool isStrict = false;
};

/// Judges who can change the files. With `strict.owner` such a file is an error
/// and left out, else a warning.
///
/// A file that others can change may set `strict.owner`, but not switch off
/// what another file says.
///
/// \param dom  Holds `strict.owner` when the command line has set it, which
///             counts before the files.
[[nodiscard]] CJudgedConfiguration JudgeConfiguration(
    const CConfigurationFiles& files, const KzaCore::CDom& dom);

/// Reads the files and makes them the process's configuration, which replaces
/// the one before. A file that is missing or cannot be read counts as empty.
void OpenConfiguration(const wxString& application,
                       const wxString& vendor,
                       const CConfigurationFiles& files);

/// Sets a key of the domain for each entry of the group `[domain]`.
///
/// The case of letters matters for keys but not for entries: the key is spelled
/// as in the file whose value counts. An entry for a key that the agent sets
/// itself, or one that the configuration cannot look up, is a warning and sets
/// no key.
///
/// \param files     The files of the process's configuration.
/// \param stronger  The key that the command line has set, which keeps its
///                  value; empty for none.
void ApplySettings(const CConfigurationFiles& files,
                   const std::string& stronger,
                   KzaCore::CDom& dom);

/// Writes the keys that follow from other entries: `app.fipsmode` where there
/// is a "FIPSMode", `app.trace+`, `app.fulldump`, and the settings of SQLite.
///
/// \param application   The application's name. The trace components of an
///                      application other than the agent itself are in the
///                      entry `<application>.Trace`.
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

/// The entries of one file, none when it cannot be read. Of several entries
/// that are one for the framework, only the one that counts. Lines that are no
/// entries are skipped without a message.
[[nodiscard]] std::vector<CConfigurationEntry> EntriesOf(const wxString& file);
