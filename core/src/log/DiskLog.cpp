// SPDX-License-Identifier: Apache-2.0

#include "log/DiskLog.h"

#include "base/Bytes.h"
#include "base/Error.h"
#include "base/WholeTransfer.h"

#include <wx/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <pthread.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// What is kept while the file's place is unknown: start-up makes a handful.
constexpr std::size_t kMostKept = 1000;
constexpr std::size_t kMostKeptBytes = 256 * 1024;

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

// Where a failure cannot be told to anybody.
void Put(int file, std::string_view text)
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

void BeforeForkCB()
{
    ProcessLog().BeforeFork();
    HoldTimeZone();
}

void AfterForkInParentCB()
{
    ReleaseTimeZone();
    ProcessLog().AfterForkInParent();
}

void AfterForkInChildCB()
{
    ReleaseTimeZone();
    ProcessLog().AfterForkInChild();
}

void OnExitCB()
{
    ProcessLog().FlushKept();
}

CDiskLog* MakeProcessLog()
{
    pthread_atfork(BeforeForkCB, AfterForkInParentCB, AfterForkInChildCB);
    static_cast<void>(std::atexit(OnExitCB));
    return new CDiskLog;
}

} // namespace

CDiskLog& ProcessLog()
{
    static CDiskLog* const log = MakeProcessLog();
    return *log;
}

void CDiskLog::Configure(const LogSettings& settings)
{
    const bool hasPlace =
        !settings.workDir.empty() && !settings.appName.empty();
    const CInside inside;
    const std::lock_guard guard(m_lock);
    if (m_placeKnown && !hasPlace)
        return;
    const auto keep = std::min(settings.keep, LogSettings::kMostKept);
    m_file.SetLimits(settings.maxSize, static_cast<int>(keep));
    m_console = settings.console;
    if (!hasPlace)
        return;
    m_appName = settings.appName;
    m_file.SetPlace(settings.workDir + "/log", FileName(settings.appName));
    m_placeKnown = true;
    m_complained = false;
    WriteKept();
}

void CDiskLog::Write(const LogEntry& entry)
{
    if (t_inside)
    {
        const CLogLine line(entry, CLogLine::EStamp::Cached);
        Put(m_file.IsOpen() ? m_file.Descriptor() : STDERR_FILENO, line.Text());
        return;
    }
    const CInside inside;
    const CLogLine line(entry);
    const std::lock_guard guard(m_lock);
    if (line.Text().empty())
        Lose(ENOMEM);
    else
        Deliver(line.Text(), entry.console);
}

void CDiskLog::Deliver(std::string_view line, EConsole console)
{
    if (!m_placeKnown)
    {
        Keep(line, console);
        return;
    }
    WriteKept();
    WriteOut(line, console);
}

void CDiskLog::Keep(std::string_view line, EConsole console)
{
    // The first ones tell more about a start that fails than the last.
    if (m_kept.size() == kMostKept ||
        m_keptBytes + line.size() > kMostKeptBytes)
    {
        ++m_dropped;
        return;
    }
    m_kept.push_back({std::string(line), console});
    m_keptBytes += line.size();
}

void CDiskLog::WriteKept()
{
    if (m_kept.empty())
        return;
    const std::time_t now = std::time(nullptr);
    if (const int error = m_file.Prepare(now))
    {
        Complain(error); // and keep them
        return;
    }
    for (const SKept& kept : m_kept)
        Append(kept.line, kept.console, now);
    m_kept = {};
    m_keptBytes = 0;
    if (m_dropped > 0)
        Warn(Records(m_dropped) + " made before the log's place was known "
                                  "could not be kept",
             now);
    m_dropped = 0;
}

void CDiskLog::WriteOut(std::string_view line, EConsole console)
{
    const std::time_t now = std::time(nullptr);
    if (m_lost > 0 && !TellLost(now))
    {
        Lose(m_lostError);
        Repeat(line, console);
        return;
    }
    Append(line, console, now);
    if (const int reason = m_file.TakeRotationError())
        Warn("Unable to rotate the log: " +
                 TextOfBytes(SystemErrorText(reason)),
             now);
}

bool CDiskLog::TellLost(std::time_t now)
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
    m_complained = false;
    Repeat(line.Text(), EConsole::Repeat);
    return true;
}

void CDiskLog::Warn(const wxString& text, std::time_t now)
{
    const CLogLine line({ELogLevel::Warning, {}, CharactersOf(text), now});
    Append(line.Text(), EConsole::Repeat, now);
}

void CDiskLog::Append(std::string_view line, EConsole console, std::time_t now)
{
    if (const int error = m_file.Append(line, now))
        Lose(error);
    Repeat(line, console);
}

void CDiskLog::Repeat(std::string_view line, EConsole console) const
{
    if (m_console && console == EConsole::Repeat)
        Put(STDERR_FILENO, line);
}

void CDiskLog::Lose(int error)
{
    ++m_lost;
    m_lostError = error;
    if (m_placeKnown && !m_file.IsOpen())
        Complain(error);
}

void CDiskLog::Complain(int error)
{
    if (m_complained)
        return;
    m_complained = true;
    Put(STDERR_FILENO, m_appName + ": cannot write the log " + m_file.Path() +
                           ": " + SystemErrorText(error) + "\n");
}

void CDiskLog::FlushKept()
{
    // A signal handler that calls exit() may have interrupted this very thread
    // while it held the lock; waiting for the lock would never end then.
    if (t_inside)
        return;
    const CInside inside;
    const std::unique_lock guard(m_lock, std::try_to_lock);
    if (!guard.owns_lock())
        return;
    for (const SKept& kept : m_kept)
        if (kept.console == EConsole::Repeat)
            Put(STDERR_FILENO, kept.line);
    m_kept.clear();
}

void CDiskLog::AfterForkInChild()
{
    // The parent writes what is kept, and owns up to what is lost.
    m_kept.clear();
    m_keptBytes = 0;
    m_dropped = 0;
    m_lost = 0;
    ForgetLogIdentity();
    m_lock.unlock();
}

} // namespace KzaCore
