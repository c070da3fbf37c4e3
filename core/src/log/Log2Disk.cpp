// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Log2Disk.h"

#include "base/Bytes.h"
#include "log/ProcessLog.h"
#include "process/ThreadLog.h"

#include <wx/thread.h>

#include <ctime>

namespace KzaCore
{

namespace
{

ELogLevel LevelOf(wxLogLevel level)
{
    switch (level)
    {
    case wxLOG_FatalError:
    case wxLOG_Error:
        return ELogLevel::Error;
    case wxLOG_Warning:
        return ELogLevel::Warning;
    case wxLOG_Message:
    case wxLOG_Status:
        return ELogLevel::Message;
    case wxLOG_Info: // wxLogVerbose() makes these too
        return ELogLevel::Info;
    case wxLOG_Trace:
        return ELogLevel::Trace;
    default:
        return ELogLevel::Debug;
    }
}

bool IsAdmitted(ELogLevel level)
{
    const wxLogLevel most = wxLog::GetLogLevel();
    switch (level)
    {
    case ELogLevel::Error:
        return most >= wxLOG_Error;
    case ELogLevel::Warning:
        return most >= wxLOG_Warning;
    case ELogLevel::Message:
        return most >= wxLOG_Message;
    case ELogLevel::Info:
        return most >= wxLOG_Info;
    case ELogLevel::Verbose:
        return most >= wxLOG_Info && wxLog::GetVerbose();
    case ELogLevel::Debug:
        return most >= wxLOG_Debug;
    case ELogLevel::Trace:
        break;
    }
    return most >= wxLOG_Trace;
}

// A target has no state, so one object serves all threads. It is never deleted,
// since a thread that ends the process still uses it.
wxLog* TargetOfThreads()
{
    static auto* const s_target = new CLog2Disk;
    return s_target;
}

const CThreadLogTarget s_registered(TargetOfThreads);

} // namespace

CLog2Disk::CLog2Disk() = default;

void CLog2Disk::DoLogRecord(wxLogLevel level,
                            const wxString& msg,
                            const wxLogRecordInfo& info)
{
    // Nearly always empty; the conversion of an empty one is saved.
    const bool isNamed = info.component != nullptr && *info.component != '\0';
    const wxString component = isNamed ? wxString(info.component) : wxString();
    const CLogPosition position = {info.filename, info.line, info.func};
    CLogEntry entry = {LevelOf(level), CharactersOf(component),
                       CharactersOf(msg), 0};
    entry.time = static_cast<std::time_t>(info.timestampMS / 1000);
    if (entry.level == ELogLevel::Trace)
        entry.position = &position;
    // The framework passes the records of threads without a target of their own
    // on the main thread.
    entry.ownThread = info.threadId == wxThread::GetCurrentId();
    ProcessLog().Write(entry);
}

void LogToDisk(ELogLevel level,
               const wxString& component,
               const wxString& text,
               EConsole console)
{
    if (!IsAdmitted(level))
        return;
    CLogEntry entry = {level, CharactersOf(component), CharactersOf(text),
                       std::time(nullptr)};
    entry.console = console;
    ProcessLog().Write(entry);
}

} // namespace KzaCore
