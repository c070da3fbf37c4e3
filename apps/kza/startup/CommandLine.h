// SPDX-License-Identifier: Apache-2.0
//
// The parsed command line, interpreted: its values become keys of the domain,
// or what a step hands back for the application object to keep.
//
// The steps are called in the order in which they stand here. A later step may
// overwrite what an earlier one wrote, and `--domain_var` stands between them.
// None of them stops the start.
//
// Threads: the main thread, during start-up.

#pragma once

#include <wx/string.h>

#include <string>

class wxAppConsole;
class wxCmdLineParser;
class wxFileName;

namespace KzaCore
{
class CDom;
} // namespace KzaCore

/// The agent's own name; an application of another name is a tool or an agent
/// of its own. Configuration files have this name whatever the application's.
inline constexpr char kDefaultName[] = "kz_agent";

class CCommandLine
{
public:
    /// Both are used as long as this object is.
    CCommandLine(const wxCmdLineParser& parser, KzaCore::CDom& dom);

    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    /// Writes `app.path.exe`, gives the application the name that was asked
    /// for, and writes `app.name`.
    void ApplyName(const wxFileName& executable, wxAppConsole& app) const;

    /// Writes `app.background` when background mode was asked for.
    ///
    /// \return whether it was.
    [[nodiscard]] bool ApplyBackground() const;

    [[nodiscard]] bool InstallPlugins() const;

    /// The directory of extension archives as given, empty without one.
    [[nodiscard]] wxString ExtensionDirectory() const;

    /// Writes `app.plugins`, `app.lua.cpath` and `app.lua.path`, each when it
    /// was given; the paths expanded by the plugins.
    ///
    /// \return the list of archives, expanded likewise.
    [[nodiscard]] wxString ApplyLuaPaths() const;

    /// Makes the working directory where it is missing and writes
    /// `app.path.work`, then `app.path.ini` and `app.path.ini.global`.
    void ApplyWorkingDirectory(const wxFileName& executable) const;

    /// Writes `app.trace` when components were given, without quotes.
    void ApplyTrace() const;

    /// Sets the key of the domain that `--domain_var` names, in the locale's
    /// encoding; what that cannot express becomes an empty text, with a
    /// warning. What is no `name=value` is said on standard error.
    ///
    /// \return the key, empty when none was set.
    [[nodiscard]] std::string ApplyDomainVariable() const;

    /// Writes `app.mode.unittest` when tests are to be run. A script that is
    /// not there is said on standard error and counts as none.
    ///
    /// \return the script or pattern, empty without one.
    [[nodiscard]] wxString ApplyUnitTest() const;

private:
    // The option's value; empty when it was not given.
    [[nodiscard]] wxString Value(const wxString& option) const;

    const wxCmdLineParser& m_parser;
    KzaCore::CDom& m_dom;
};
