// SPDX-License-Identifier: Apache-2.0
//
// The states of the log and the functions that change them. Each record is
// handled according to the present state, under the lock.
//
//   Early   The place of the file is not known. Accept() keeps the line in
//           m_early.
//     -> Placed  Configure() brings a place.
//     -> end     PrintEarly() shows the lines on standard error at the end of
//                the process.
//   Placed  WriteRecord() appends the line to the file and repeats it on
//           standard error where the setting `log.console` asks for that.
//     -> Losing  AppendLine() meets an error: the disk is full, the file cannot
//                be opened. CountLost() counts the line.
//   Losing  m_lost lines are missing. Before each line ReportLost() tries to
//           append their number; while that fails, the line is lost as well.
//     -> Placed  The number is in the file.
//
// Early lines come first: WriteEarly() writes them as soon as the file can be
// opened, which may be some records after Configure(). When the file cannot be
// opened, ComplainOnce() reports it on standard error: once for each place, and
// again after the number of lost lines could be written in between.
//
// A signal handler may log while its thread is inside the log, with the lock
// held or not. WriteInHandler() writes such a record with one system call,
// without the lock and without any of the state above.

#include "log/DiskLog.h"

#include "base/Bytes.h"
#include "base/Error.h"
#include "base/WholeTransfer.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <unistd.h>

namespace KzaCore
{

namespace
{

// The kind of the warnings that the log itself makes.
constexpr CRecordKind kOwnWarning = {ELogLevel::Warning, EConsole::Repeat};

// True while the thread is inside the log.
thread_local volatile bool t_inside = false;

class CInside
{
public:
    CInside() { t_inside = true; }
    ~CInside() { t_inside = false; }
    CInside(const CInside&) = delete;
    CInside& operator=(const CInside&) = delete;
};

// Ignores a failure, which could be reported nowhere.
void WriteUnchecked(int file, std::string_view text)
{
    static_cast<void>(WriteWhole(file, text.data(), text.size()));
}

wxString Records(std::uint64_t count)
{
    return count == 1
               ? wxString("1 record")
               : wxString::Format("%llu records",
                                  static_cast<unsigned long long>(count));
}

std::string FileName(const std::string& appName)
{
    std::string name = appName + ".log";
    std::replace(name.begin(), name.end(), '/', '_');
    return name;
}

} // namespace

void CDiskLog::Configure(const CLogSettings& settings)
{
    const bool hasPlace =
        !settings.workDir.empty() && !settings.appName.empty();
    const CInside inside;
    const CLock lock(m_mutex);
    if (m_hasPlace && !hasPlace)
        return;
    const auto oldFiles =
        std::min(settings.oldFiles, CLogSettings::kMostOldFiles);
    m_file.SetLimits(settings.maxSize, static_cast<int>(oldFiles));
    m_console = settings.console;
    if (!hasPlace)
        return;
    m_appName = settings.appName;
    m_file.SetPlace(settings.workDir + "/log", FileName(settings.appName));
    m_hasPlace = true;
    m_hasComplained = false;
    WriteEarly();
}

void CDiskLog::Write(const CLogEntry& entry)
{
    if (t_inside)
    {
        WriteInHandler(entry);
        return;
    }
    const CInside inside;
    const CLogLine line(entry);
    const CLock lock(m_mutex);
    if (line.Text().empty())
        CountLost(ENOMEM);
    else
        Accept(line.Text(), {entry.level, entry.console});
}

// Uses only one member of the guarded state, the descriptor's number, which is
// atomic.
void CDiskLog::WriteInHandler(const CLogEntry& entry) KZA_UNCHECKED_LOCKS
{
    const CLogLine line(entry, CLogLine::EStamp::Cached);
    const int file = m_file.Descriptor();
    WriteUnchecked(file >= 0 ? file : STDERR_FILENO, line.Text());
}

void CDiskLog::Accept(std::string_view line, const CRecordKind& kind)
{
    if (!m_hasPlace)
    {
        m_early.Add(line, kind);
        return;
    }
    WriteEarly();
    WriteRecord(line, kind);
}

void CDiskLog::WriteEarly()
{
    if (m_early.Records().empty())
        return;
    const std::time_t now = std::time(nullptr);
    if (const int error = m_file.EnsureOpen(now))
    {
        ComplainOnce(error);
        return;
    }
    for (const CEarlyRecords::CRecord& record : m_early.Records())
        AppendLine(record.line, record.kind, now);
    if (m_early.Refused() > 0)
        WriteWarning(Records(m_early.Refused()) +
                         " made before the log's place was known could not be "
                         "kept",
                     now);
    m_early.Clear();
}

void CDiskLog::WriteRecord(std::string_view line, const CRecordKind& kind)
{
    const std::time_t now = std::time(nullptr);
    if (m_lost > 0 && !ReportLost(now))
    {
        CountLost(m_lostError);
        RepeatOnConsole(line, kind);
        return;
    }
    AppendLine(line, kind, now);
    if (const int reason = m_file.TakeRotationError())
        WriteWarning("Unable to rotate the log: " +
                         TextOfBytes(SystemErrorText(reason)),
                     now);
}

bool CDiskLog::ReportLost(std::time_t now)
{
    const wxString text =
        Records(m_lost) + " lost: " + TextOfBytes(SystemErrorText(m_lostError));
    const CLogLine line({ELogLevel::Warning, {}, CharactersOf(text), now});
    if (const int error = m_file.Append(line.Text(), now))
    {
        m_lostError = error;
        return false;
    }
    m_lost = 0;
    m_hasComplained = false;
    RepeatOnConsole(line.Text(), kOwnWarning);
    return true;
}

void CDiskLog::WriteWarning(const wxString& text, std::time_t now)
{
    const CLogLine line({ELogLevel::Warning, {}, CharactersOf(text), now});
    AppendLine(line.Text(), kOwnWarning, now);
}

void CDiskLog::AppendLine(std::string_view line,
                          const CRecordKind& kind,
                          std::time_t now)
{
    if (const int error = m_file.Append(line, now))
        CountLost(error);
    RepeatOnConsole(line, kind);
}

void CDiskLog::RepeatOnConsole(std::string_view line,
                               const CRecordKind& kind) const
{
    if (IsForConsole(kind, m_console))
        WriteUnchecked(STDERR_FILENO, line);
}

void CDiskLog::CountLost(int error)
{
    ++m_lost;
    m_lostError = error;
    if (m_hasPlace && !m_file.IsOpen())
        ComplainOnce(error);
}

void CDiskLog::ComplainOnce(int error)
{
    if (m_hasComplained)
        return;
    m_hasComplained = true;
    WriteUnchecked(STDERR_FILENO, m_appName + ": cannot write the log " +
                                      m_file.Path() + ": " +
                                      SystemErrorText(error) + "\n");
}

void CDiskLog::PrintEarly()
{
    // A signal handler that calls exit() may have interrupted this very thread
    // while it held the lock; waiting for the lock would never end then.
    if (t_inside)
        return;
    const CInside inside;
    if (!m_mutex.TryLock())
        return;
    for (const CEarlyRecords::CRecord& record : m_early.Records())
        if (record.kind.console == EConsole::Repeat)
            WriteUnchecked(STDERR_FILENO, record.line);
    m_early.Clear();
    m_mutex.Unlock();
}

void CDiskLog::AfterForkInChild()
{
    // The parent writes its early records and reports its losses itself.
    m_early.Clear();
    m_lost = 0;
    ForgetLogIdentity();
    m_mutex.Unlock();
}

} // namespace KzaCore
