// SPDX-License-Identifier: Apache-2.0
//
// The sink of log records. It writes them to the log file, and handles records
// that come before there is a file, while the file cannot be written, at the
// end of the process and around a fork.
//
// Records made before the place of the file is known are kept and written
// first; when the process ends before that, they go to standard error unless
// their text is there already. Records that could not be written are counted,
// and the count is logged when the file can be written again.
//
// Threads: any. One lock covers file and settings; no function that could log
// is called under it. A record made while its thread is inside the log, which
// only a signal handler can do, is written without the lock. A forked child may
// go on logging.

#pragma once

#include "base/Mutex.h"
#include "log/ConsoleLevel.h"
#include "log/EarlyRecords.h"
#include "log/LogFile.h"
#include "log/LogLine.h"

#include <wx/string.h>

#include <cstdint>
#include <string>

namespace KzaCore
{

/// The place and the limits of the log file, and the records to be repeated.
struct CLogSettings
{
    static constexpr std::int64_t kDefaultMaxSize = 10 * 1024 * 1024;
    static constexpr std::int64_t kDefaultOldFiles = 5;
    static constexpr std::int64_t kMostOldFiles = 999;

    std::string workDir; // the file is <workDir>/log/<appName>.log; a slash
    std::string appName; // in the name is shown as `_`
    std::int64_t maxSize = kDefaultMaxSize;   // bytes, 0 for no end
    std::int64_t oldFiles = kDefaultOldFiles; // kept beside the file
    EConsoleLevel console = EConsoleLevel::WarningOnTerminal;
};

class CDiskLog
{
public:
    CDiskLog() = default;
    CDiskLog(const CDiskLog&) = delete;
    CDiskLog& operator=(const CDiskLog&) = delete;

    /// Takes new settings. Once the place is known, settings without a place
    /// are ignored: they come when the root domain is released, shortly before
    /// the process ends.
    void Configure(const CLogSettings& settings) KZA_EXCLUDES(m_mutex);

    /// Writes one entry. When the call returns, the system has the line, or the
    /// line is kept as an early one.
    void Write(const CLogEntry& entry) KZA_EXCLUDES(m_mutex);

    /// Prints the early records on standard error instead of the file. Called
    /// at the end of the process, which a signal handler may cause at any
    /// instruction: waits for no lock, and does nothing while a thread is
    /// inside the log.
    void PrintEarly() KZA_EXCLUDES(m_mutex);

    // Around a fork, no thread may be inside the log.
    void BeforeFork() KZA_ACQUIRE(m_mutex) { m_mutex.Lock(); }
    void AfterForkInParent() KZA_RELEASE(m_mutex) { m_mutex.Unlock(); }
    void AfterForkInChild() KZA_RELEASE(m_mutex);

private:
    void WriteInHandler(const CLogEntry& entry);

    void Accept(std::string_view line, const CRecordKind& kind)
        KZA_REQUIRES(m_mutex);
    void WriteEarly() KZA_REQUIRES(m_mutex);
    void WriteRecord(std::string_view line, const CRecordKind& kind)
        KZA_REQUIRES(m_mutex);
    bool ReportLost(std::time_t now) KZA_REQUIRES(m_mutex);
    void WriteWarning(const wxString& text, std::time_t now)
        KZA_REQUIRES(m_mutex);
    void AppendLine(std::string_view line,
                    const CRecordKind& kind,
                    std::time_t now) KZA_REQUIRES(m_mutex);
    void RepeatOnConsole(std::string_view line, const CRecordKind& kind) const
        KZA_REQUIRES(m_mutex);
    void CountLost(int error) KZA_REQUIRES(m_mutex);
    void ComplainOnce(int error) KZA_REQUIRES(m_mutex);

    CMutex m_mutex;

    // The settings.
    std::string m_appName KZA_GUARDED_BY(m_mutex);
    EConsoleLevel m_console KZA_GUARDED_BY(m_mutex) =
        EConsoleLevel::WarningOnTerminal;
    bool m_hasPlace KZA_GUARDED_BY(m_mutex) = false; // never false again

    // The records.
    CEarlyRecords m_early KZA_GUARDED_BY(m_mutex);
    CLogFile m_file KZA_GUARDED_BY(m_mutex);

    // The records that could not be written.
    std::uint64_t m_lost KZA_GUARDED_BY(m_mutex) = 0;
    int m_lostError KZA_GUARDED_BY(m_mutex) = 0; // of the last attempt
    bool m_hasComplained KZA_GUARDED_BY(m_mutex) = false;
};

} // namespace KzaCore
