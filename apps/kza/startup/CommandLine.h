// SPDX-License-Identifier: Apache-2.0
//
// The steps that interpret the parsed command line. Its values become keys of
// the domain, or are returned to the application object.
//
// The steps are called in the order of their declarations. A later step may
// overwrite a key that an earlier one or `--domain_var` has written. No step
// stops the start.
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
/// of its own. Configuration files have this name for every application.
inline constexpr char kDefaultName[] = "kz_agent";

class CCommandLine
{
public:
    /// Both outlive this object.
    CCommandLine(const wxCmdLineParser& parser, KzaCore::CDom& dom);

    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    /// Writes `app.path.exe`, sets the application's name to the one that was
    /// given, if any, and writes `app.name`.
    void ApplyName(const wxFileName& executable, wxAppConsole& app) const;

    /// Writes `app.background` when background mode was requested.
    ///
    /// \return whether it was requested.
    [[nodiscard]] bool ApplyBackground() const;

    [[nodiscard]] bool InstallPlugins() const;

    /// The directory of extension archives as given, empty without one.
    [[nodiscard]] wxString ExtensionDirectory() const;

    /// Writes `app.plugins`, `app.lua.cpath` and `app.lua.path`, each when its
    /// option was given; the paths are expanded for the plugins.
    ///
    /// \return the list of archives, expanded likewise.
    [[nodiscard]] wxString ApplyLuaPaths() const;

    /// Makes the working directory when it is missing and writes
    /// `app.path.work`, then `app.path.ini` and `app.path.ini.global`.
    void ApplyWorkingDirectory(const wxFileName& executable) const;

    /// Writes `app.trace` when components were given, without quotes.
    void ApplyTrace() const;

    /// Sets the key of the domain that `--domain_var` names, in the locale's
    /// encoding. A name or value that the encoding cannot express becomes an
    /// empty text, with a warning. An argument that is no `name=value` is
    /// reported on standard error.
    ///
    /// \return the key, empty when none was set.
    [[nodiscard]] std::string ApplyDomainVariable() const;

    /// Writes `app.mode.unittest` when tests are to be run. A missing script is
    /// reported on standard error and ignored.
    ///
    /// \return the script or pattern, empty without one.
    [[nodiscard]] wxString ApplyUnitTest() const;

private:
    // The option's value; empty when it was not given.
    [[nodiscard]] wxString Value(const wxString& option) const;

    const wxCmdLineParser& m_parser;
    KzaCore::CDom& m_dom;
};
