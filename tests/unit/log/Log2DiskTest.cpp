// SPDX-License-Identifier: Apache-2.0
//
// The framework's records in the disk log, and its threshold.

#include "kza_core/Log2Disk.h"

#include "base/ThreadId.h"
#include "kza_core/Runnable.h"
#include "log/ProcessLog.h"

#include "support/Host.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/init.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

/// The process's log in a directory of the test's own, as the framework's
/// target; the framework is as before when it goes.
class CTargetHere
{
public:
    CTargetHere() : m_before(wxLog::SetActiveTarget(new CLog2Disk))
    {
        CLogSettings settings;
        settings.workDir = m_dir.Path();
        settings.appName = "app";
        ProcessLog().Configure(settings);
    }
    ~CTargetHere()
    {
        delete wxLog::SetActiveTarget(m_before);
        wxLog::SetLogLevel(m_level);
        wxLog::SetVerbose(m_verbose);
    }
    CTargetHere(const CTargetHere&) = delete;
    CTargetHere& operator=(const CTargetHere&) = delete;

    [[nodiscard]] std::vector<std::string> Records() const
    {
        std::vector<std::string> records;
        for (const std::string& line : ReadLines(m_dir.File("log/app.log")))
            records.push_back(RecordText(line));
        return records;
    }

    [[nodiscard]] std::string File() const
    {
        return ReadFile(m_dir.File("log/app.log"));
    }

private:
    CTempDir m_dir;
    wxLog* m_before;
    wxLogLevel m_level = wxLog::GetLogLevel();
    bool m_verbose = wxLog::GetVerbose();
};

using Texts = std::vector<std::string>;

class CLoggingThread : public CRunnable
{
public:
    explicit CLoggingThread(const CTargetHere& here)
        : CRunnable(false, -1, false), m_here(here)
    {
    }

    void OnRun() override
    {
        wxLogMessage("from a thread");
        m_records = m_here.Records();
    }

    Texts m_records; ///< in the file as soon as the thread's call returned

private:
    const CTargetHere& m_here;
};

} // namespace

TEST(Log2Disk, FrameworkLevelsHaveTheirNames)
{
    const CTargetHere here;
    wxLog::SetLogLevel(wxLOG_Max);
    wxLog::SetVerbose(true);
    wxLogError("an error");
    wxLogWarning("a warning");
    wxLogMessage("a message");
    wxLogGeneric(wxLOG_Status, "a status");
    wxLogInfo("an information");
    wxLogVerbose("verbose");
    wxLogGeneric(wxLOG_Debug, "debug");
    wxLogGeneric(wxLOG_Progress, "progress");
    wxLogGeneric(wxLOG_User, "user");
    EXPECT_EQ(
        here.Records(),
        (Texts{"ERROR kza: an error", "WARNING kza: a warning",
               "MESSAGE kza: a message", "MESSAGE kza: a status",
               "INFO kza: an information", "INFO kza: verbose",
               "DEBUG kza: debug", "DEBUG kza: progress", "DEBUG kza: user"}));
}

TEST(Log2Disk, SystemErrorCarriesCodeAndText)
{
    const CTargetHere here;
    errno = EACCES;
    wxLogSysError("Unable to fork");
    wxLogSysError(long(ENOENT), "Unable to %s", "open");
    EXPECT_EQ(here.Records(),
              (Texts{"ERROR kza: Unable to fork (error 13: Permission denied)",
                     "ERROR kza: Unable to open (error 2: No such file or "
                     "directory)"}));
}

TEST(Log2Disk, ComponentAndTimeAreTheRecords)
{
    const CTargetHere here;
    wxLogRecordInfo info("/a/b.cpp", 12, "f", "Cmd");
    info.timestampMS = 1800000000999;
    info.threadId = wxThread::GetCurrentId();
    CLog2Disk target;
    target.LogRecord(wxLOG_Message, "text", info);

    char stamp[32];
    const std::time_t time = 1800000000;
    std::tm parts = {};
    localtime_r(&time, &parts);
    strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &parts);
    EXPECT_EQ(here.File(),
              std::string(stamp) + " [" + std::to_string(getpid()) + ":" +
                  std::to_string(CurrentThreadId()) + "] MESSAGE Cmd: text\n");
}

TEST(Log2Disk, RecordOfAThreadShownByAnotherHasNumberZero)
{
    const CTargetHere here;
    wxLogRecordInfo info("b.cpp", 12, "f", "");
    info.timestampMS = 1800000000000;
    info.threadId = wxThread::GetCurrentId() + 1;
    CLog2Disk target;
    target.LogRecord(wxLOG_Message, "text", info);
    EXPECT_NE(here.File().find(" [" + std::to_string(getpid()) +
                               ":0] MESSAGE kza: text\n"),
              std::string::npos);
}

TEST(Log2Disk, RecordOfARunningThreadWaitsForNoOther)
{
    const wxInitializer framework;
    const CTargetHere here;
    CLoggingThread thread(here);
    ASSERT_TRUE(thread.start(50, true, 0));
    thread.join();
    EXPECT_EQ(thread.m_records, Texts{"MESSAGE kza: from a thread"});
}

TEST(Log2Disk, FrameworkTraceCarriesItsPosition)
{
    const CTargetHere here;
    wxLogRecordInfo info("/a/b.cpp", 12, "f", "");
    info.threadId = wxThread::GetCurrentId();
    CLog2Disk target;
    target.LogRecord(wxLOG_Trace, "text", info);
    EXPECT_EQ(here.Records(), Texts{"TRACE kza: b.cpp:12 f text"});
}

TEST(Log2Disk, LineBreaksAreShown)
{
    const CTargetHere here;
    wxLogMessage("one\ntwo\n");
    EXPECT_EQ(here.Records(), Texts{"MESSAGE kza: one\\ntwo\\n"});
}

TEST(Log2Disk, ThresholdOfTheFrameworkHolds)
{
    const struct
    {
        wxLogLevel most;
        bool verbose;
        Texts records;
    } cases[] = {
        {wxLOG_FatalError, true, {}},
        {wxLOG_Error, true, {"ERROR c: e"}},
        {wxLOG_Warning, true, {"ERROR c: e", "WARNING c: w"}},
        {wxLOG_Message, true, {"ERROR c: e", "WARNING c: w", "MESSAGE c: m"}},
        {wxLOG_Info,
         false,
         {"ERROR c: e", "WARNING c: w", "MESSAGE c: m", "INFO c: i"}},
        {wxLOG_Info,
         true,
         {"ERROR c: e", "WARNING c: w", "MESSAGE c: m", "INFO c: i",
          "VERBOSE c: v"}},
        {wxLOG_Debug,
         true,
         {"ERROR c: e", "WARNING c: w", "MESSAGE c: m", "INFO c: i",
          "VERBOSE c: v", "DEBUG c: d"}},
        {wxLOG_Max,
         true,
         {"ERROR c: e", "WARNING c: w", "MESSAGE c: m", "INFO c: i",
          "VERBOSE c: v", "DEBUG c: d", "TRACE c: t"}},
    };
    for (const auto& one : cases)
    {
        const CTargetHere here;
        wxLog::SetLogLevel(one.most);
        wxLog::SetVerbose(one.verbose);
        LogToDisk(ELogLevel::Error, "c", "e");
        LogToDisk(ELogLevel::Warning, "c", "w");
        LogToDisk(ELogLevel::Message, "c", "m");
        LogToDisk(ELogLevel::Info, "c", "i");
        LogToDisk(ELogLevel::Verbose, "c", "v");
        LogToDisk(ELogLevel::Debug, "c", "d");
        LogToDisk(ELogLevel::Trace, "c", "t");
        EXPECT_EQ(here.Records(), one.records);
    }
}
