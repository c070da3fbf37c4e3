// SPDX-License-Identifier: Apache-2.0
//
// The one sink of the process's log records, behind CLog2Disk, LogToDisk() and
// LogTrace().
//
// Records made before the place of the file is known are kept and written
// first; when the process ends before that, they go to standard error unless
// their text stands there already. Records that the file could not take are
// counted, and the count is logged when it can again.
//
// Threads: any. One lock covers file and settings; nothing is called from
// under it that could log. A record made while its thread is inside the log,
// which only a signal handler can do, is written without the lock. A forked
// child may go on logging.

#pragma once

#include "log/LogFile.h"
#include "log/LogLine.h"

#include <wx/string.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace KzaCore
{

/// What decides where the records go.
struct LogSettings
{
    static constexpr std::int64_t kDefaultMaxSize = 10 * 1024 * 1024;
    static constexpr std::int64_t kDefaultKeep = 5;
    static constexpr std::int64_t kMostKept = 999;

    std::string workDir; // the file is <workDir>/log/<appName>.log; a slash
    std::string appName; // in the name is shown as `_`
    std::int64_t maxSize = kDefaultMaxSize; // bytes, 0 for no end
    std::int64_t keep = kDefaultKeep;       // older files
    bool console = false;                   // repeat on standard error
};

class CDiskLog
{
public:
    CDiskLog() = default;
    CDiskLog(const CDiskLog&) = delete;
    CDiskLog& operator=(const CDiskLog&) = delete;

    /// Takes new settings. Once the place is known, settings without one
    /// change nothing: the domain is gone and the process about to end.
    void Configure(const LogSettings& settings);

    /// Writes one entry. It is on its way to the file when this returns.
    void Write(const LogEntry& entry);

    /// Gives up on the file for the records kept so far: they go to standard
    /// error. Made for the end of the process, which a signal handler may bring
    /// about anywhere: it waits for no lock, and while a thread is inside the
    /// log it does nothing.
    void FlushKept();

    // Around a fork: nobody may be inside the log.
    void BeforeFork() { m_lock.lock(); }
    void AfterForkInParent() { m_lock.unlock(); }
    void AfterForkInChild();

private:
    struct SKept
    {
        std::string line;
        EConsole console;
    };

    void Deliver(std::string_view line, EConsole console);
    void Keep(std::string_view line, EConsole console);
    void WriteKept();
    void WriteOut(std::string_view line, EConsole console);
    bool TellLost(std::time_t now);
    void Warn(const wxString& text, std::time_t now);
    void Append(std::string_view line, EConsole console, std::time_t now);
    void Repeat(std::string_view line, EConsole console) const;
    void Lose(int error);
    void Complain(int error);

    std::mutex m_lock; // guards all below
    CLogFile m_file;
    std::string m_appName;
    bool m_placeKnown = false;
    bool m_console = false;
    bool m_complained = false; // that the file cannot be opened

    std::vector<SKept> m_kept;
    std::size_t m_keptBytes = 0;
    std::uint64_t m_dropped = 0; // there was no room to keep them

    std::uint64_t m_lost = 0; // the file did not take them
    int m_lostError = 0;
};

/// The sink of the process; never destroyed, so that a thread may log while
/// the process ends.
CDiskLog& ProcessLog();

} // namespace KzaCore
