// SPDX-License-Identifier: Apache-2.0
//
// What the tests of packages share.

#pragma once

#include "support/Host.h"
#include "support/Zip.h"

#include <string>
#include <vector>

namespace TestSupport
{

/// What becomes of a package: number and severity of its event.
inline constexpr char kInstalled[] = "5101 5";
inline constexpr char kNotInstalled[] = "5102 2";
inline constexpr char kRemoved[] = "5105 5";
inline constexpr char kNotRemoved[] = "5106 2";

/// The event about a package as CPackageHost::Events() shows it:
/// "<outcome> <plugin>|<name without extension>|@/<package>".
///
/// \param outcome  One of the above.
/// \param plugin   Of a name without dashes it is all but the extension.
std::string Event(const std::string& outcome, const std::string& package);
std::string Event(const std::string& outcome,
                  const std::string& package,
                  const std::string& plugin);

/// The warning about a package that cannot be unpacked, as CPackageHost::Log()
/// shows it.
std::string Refusal(const std::string& package, const std::string& reason);

/// A host whose application prints the events and asks for the heartbeat.
class CPackageHost
{
public:
    CPackageHost();

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_host.File(name);
    }
    [[nodiscard]] const std::string& Bin() const { return m_host.Bin(); }

    /// Puts a package beside the executable.
    void Add(const std::string& name,
             const std::vector<CZipInput>& files) const;
    void Add(const std::string& name, const std::string& bytes) const;

    /// Options of the starts to come, besides those that they need.
    void SetOptions(const std::vector<std::string>& options)
    {
        m_options = options;
    }

    /// The words of a start that applies packages, reports the events from now
    /// on and runs a shell command.
    [[nodiscard]] std::vector<std::string> Words(
        const std::string& probe = "true") const;

    /// Starts the agent with the packages applied; it must end in order.
    ///
    /// \param probe  A shell command that the agent runs afterwards, for what
    ///               only its process sees.
    void Run(const CProcessOptions& options = {},
             const std::string& probe = "true");

    /// The lines that the probe of the last run wrote.
    [[nodiscard]] const std::vector<std::string>& Probe() const
    {
        return m_probe;
    }

    /// The events that the last run added; see Event().
    [[nodiscard]] const std::vector<std::string>& Events() const
    {
        return m_events;
    }

    /// "true" when the last run asked for a heartbeat, else "nil".
    [[nodiscard]] const std::string& Heartbeat() const { return m_heartbeat; }

    /// What the last run wrote into the log about packages, each as
    /// "<LEVEL> <text>", the directory shown as "@".
    [[nodiscard]] const std::vector<std::string>& Log() const { return m_log; }

    /// Names beside the executable, sorted, directories with a slash; without
    /// what an installation has anyway.
    [[nodiscard]] std::vector<std::string> Tree() const;

    /// Those of them that are warnings or errors.
    [[nodiscard]] std::vector<std::string> Problems() const;

private:
    void ReadLog();

    CHost m_host{false};
    std::vector<std::string> m_options;
    std::size_t m_logLines = 0; // those of earlier runs
    std::vector<std::string> m_events;
    std::vector<std::string> m_log;
    std::vector<std::string> m_probe;
    std::string m_heartbeat;
};

} // namespace TestSupport
