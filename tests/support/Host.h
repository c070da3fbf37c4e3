// SPDX-License-Identifier: Apache-2.0
//
// An installation of a test's own.

#pragma once

#include "support/Process.h"
#include "support/TempDir.h"

#include <string>
#include <vector>

namespace TestSupport
{

/// Records without those by which the fallbacks for POSIX tell what they lack:
/// the tests compare what the agent says on every system.
std::string WithoutNotesOfFallbacks(const std::string& records);

/// The text of a log, or its lines, without notes of fallbacks.
std::string ReadLog(const std::string& path);
std::vector<std::string> ReadLogLines(const std::string& path);

/// A copy of the staged installation in a temporary directory. What a test
/// puts beside the executable is seen by it alone.
///
/// Pid files lie outside: a test of background mode needs a name of its own.
class CHost
{
public:
    /// \param withArchives  Also copy kza_core/ with the example application
    ///                      and the core archive.
    explicit CHost(bool withArchives = true);

    /// The directory of the executable, without a trailing separator.
    [[nodiscard]] const std::string& Bin() const { return m_dir.Path(); }
    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_dir.File(name);
    }
    [[nodiscard]] std::string Agent() const { return File("kz_agent"); }
    [[nodiscard]] std::string Work() const { return File("work"); }

    /// The log of an application run with the default working directory.
    [[nodiscard]] std::string Log(
        const std::string& application = "kz_agent") const
    {
        return ReadLog(File("work/log/" + application + ".log"));
    }

    /// Its records as the text after the level, in order.
    [[nodiscard]] std::vector<std::string> Records(
        const std::string& application = "kz_agent") const;

    /// Writes a Lua module to <bin>/lua/<name>.lua, where `require` finds it.
    void AddModule(const std::string& name, const std::string& source) const;

    /// The words that start the agent.
    [[nodiscard]] std::vector<std::string> Words(
        const std::vector<std::string>& arguments) const;

    [[nodiscard]] CProcessResult Run(const std::vector<std::string>& arguments,
                                     const CProcessOptions& options = {}) const;

    /// Runs a Lua tool of one module: `kz_agent --appname <name> …` with the
    /// source as that module.
    [[nodiscard]] CProcessResult RunTool(
        const std::string& name,
        const std::string& source,
        const std::vector<std::string>& arguments = {},
        const CProcessOptions& options = {}) const;

private:
    CTempDir m_dir;
};

/// The text of a log record without what differs from run to run: date, time,
/// process and thread. Empty when the line is no record.
std::string RecordText(const std::string& line);

} // namespace TestSupport
