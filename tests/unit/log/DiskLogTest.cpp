// SPDX-License-Identifier: Apache-2.0
//
// The sink of all records: what is kept, lost, repeated and said about it.

#include "log/DiskLog.h"

#include "base/ThreadId.h"
#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Trace.h"
#include "log/ProcessLog.h"

#include "support/InChild.h"
#include "support/Process.h"
#include "support/Service.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

// The level, component and text of a line; empty for what is no record.
std::string Bare(const std::string& line)
{
    static const std::regex pattern(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[\d+:\d+\] )"
        R"((?=(ERROR|WARNING|MESSAGE|INFO|VERBOSE|DEBUG|TRACE) [^: ]+: ))");
    std::smatch match;
    return std::regex_search(line, match, pattern,
                             std::regex_constants::match_continuous)
               ? match.suffix().str()
               : std::string();
}

std::vector<std::string> BareLines(const std::string& path)
{
    std::vector<std::string> lines = ReadLines(path);
    std::transform(lines.begin(), lines.end(), lines.begin(), Bare);
    return lines;
}

struct CPlace
{
    CTempDir dir;
    std::string log = dir.File("log/app.log");

    [[nodiscard]] CLogSettings Settings() const
    {
        CLogSettings settings;
        settings.workDir = dir.Path();
        settings.appName = "app";
        return settings;
    }
};

void Put(CDiskLog& log,
         const std::wstring& text,
         EConsole console = EConsole::Repeat)
{
    CLogEntry entry = {ELogLevel::Message, L"Test", text, std::time(nullptr)};
    entry.console = console;
    log.Write(entry);
}

// Directs the process's own log, as the application's keys would.
struct CProcessPlace : CPlace
{
    CProcessPlace() { ProcessLog().Configure(Settings()); }
};

std::string NumberedText(int writer, int thread, int number)
{
    return "writer " + std::to_string(writer) + " thread " +
           std::to_string(thread) + " number " + std::to_string(number) +
           std::string(static_cast<std::size_t>(number % 97), '.');
}

// Four threads that each write numbered records.
void WriteFromThreads(CDiskLog& log, int writer, int count)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back(
            [&log, writer, thread, count]
            {
                for (int i = 0; i < count; ++i)
                {
                    const std::string text = NumberedText(writer, thread, i);
                    Put(log, {text.begin(), text.end()});
                }
            });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace

TEST(DiskLog, RecordsMadeBeforeThePlaceIsKnownComeFirst)
{
    const CPlace place;
    CDiskLog log;
    Put(log, L"one");
    CLogSettings settings = place.Settings();
    settings.appName.clear();
    log.Configure(settings);
    Put(log, L"two");
    log.Configure(place.Settings());
    EXPECT_EQ(ReadLines(place.log).size(), 2U);
    Put(log, L"three");
    EXPECT_EQ(
        BareLines(place.log),
        (std::vector<std::string>{"MESSAGE Test: one", "MESSAGE Test: two",
                                  "MESSAGE Test: three"}));
}

TEST(DiskLog, NoFileIsMadeBeforeTheFirstRecord)
{
    const CPlace place;
    CDiskLog log;
    log.Configure(place.Settings());
    EXPECT_FALSE(FileExists(place.dir.File("log")));
}

TEST(DiskLog, TellsHowManyEarlyRecordsCouldNotBeKept)
{
    const CPlace place;
    CDiskLog log;
    for (int i = 0; i < 1003; ++i)
        Put(log, std::to_wstring(i));
    log.Configure(place.Settings());
    Put(log, L"later");
    const auto lines = BareLines(place.log);
    ASSERT_EQ(lines.size(), 1002U);
    EXPECT_EQ(lines[0], "MESSAGE Test: 0");
    EXPECT_EQ(lines[999], "MESSAGE Test: 999");
    EXPECT_EQ(lines[1000],
              "WARNING kza: 3 records made before the log's place was known "
              "could not be kept");
    EXPECT_EQ(lines[1001], "MESSAGE Test: later");
}

TEST(DiskLog, EarlyRecordsTakeBoundedMemory)
{
    const CPlace place;
    CDiskLog log;
    for (int i = 0; i < 5; ++i)
        Put(log, std::wstring(100000, L'x'));
    log.Configure(place.Settings());
    const auto lines = BareLines(place.log);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[2],
              "WARNING kza: 3 records made before the log's place was known "
              "could not be kept");
}

TEST(DiskLogDeathTest, RecordsOfAnEndBeforeThePlaceIsKnownGoToStandardError)
{
    EXPECT_EXIT(
        {
            LogToDisk(ELogLevel::Error, "Early", "what went wrong");
            exit(7);
        },
        testing::ExitedWithCode(7), "ERROR Early: what went wrong\n");
}

namespace
{

// Logs until a pipe behind standard error is full. The write that waits for
// room there is inside the log and holds its lock.
[[noreturn]] void LogUntilItEndsInHandler(const CPlace& place,
                                          int standardError)
{
    struct sigaction action = {};
    action.sa_handler = [](int) { exit(0); };
    sigaction(SIGTERM, &action, nullptr);
    dup2(standardError, STDERR_FILENO);
    CLogSettings settings = place.Settings();
    settings.console = EConsoleLevel::All;
    ProcessLog().Configure(settings);
    for (;;)
        LogToDisk(ELogLevel::Message, "Test", "record");
}

int BytesIn(int pipe)
{
    int count = 0;
    ioctl(pipe, FIONREAD, &count);
    return count;
}

} // namespace

TEST(DiskLog, EndOfTheProcessInASignalHandlerInsideTheLogDoesNotHang)
{
    const CPlace place;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0)
        LogUntilItEndsInHandler(place, ends[1]);
    EXPECT_TRUE(WaitUntil(
        [&]
        { return BytesIn(ends[0]) > 0 && ProcessInfo(child).state == 'S'; }));
    kill(child, SIGTERM);

    int status = -1;
    const bool ended =
        WaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; },
                  std::chrono::seconds(20));
    EXPECT_TRUE(ended) << "it hangs";
    EXPECT_EQ(status, 0);
    if (!ended)
    {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    close(ends[0]);
    close(ends[1]);
}

TEST(DiskLogDeathTest, WhatStandsOnStandardErrorIsNotRepeatedThere)
{
    const CPlace place;
    EXPECT_EXIT(
        {
            CDiskLog log;
            Put(log, L"kept", EConsole::Leave);
            CLogSettings settings = place.Settings();
            settings.console = EConsoleLevel::All;
            log.Configure(settings);
            Put(log, L"said", EConsole::Leave);
            Put(log, L"told");
            _exit(ReadLines(place.log).size() == 3 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^[^\n]*MESSAGE Test: told\n$");
}

TEST(DiskLogDeathTest, AnEndBeforeThePlaceIsKnownSaysNothingTwice)
{
    EXPECT_EXIT(
        {
            LogToDisk(ELogLevel::Error, "Early", "said", EConsole::Leave);
            LogToDisk(ELogLevel::Error, "Early", "told");
            exit(7);
        },
        testing::ExitedWithCode(7), "^[^\n]*ERROR Early: told\n$");
}

TEST(DiskLogDeathTest, RecordsAreRepeatedOnStandardErrorOnRequest)
{
    const CPlace place;
    EXPECT_EXIT(
        {
            CDiskLog log;
            Put(log, L"zero");
            CLogSettings settings = place.Settings();
            settings.console = EConsoleLevel::All;
            log.Configure(settings);
            Put(log, L"one");
            settings.console = EConsoleLevel::Nothing;
            log.Configure(settings);
            Put(log, L"two");
            settings.console = EConsoleLevel::All;
            log.Configure(settings);
            Put(log, L"three");
            _exit(ReadLines(place.log).size() == 4 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "^[^\n]*MESSAGE Test: zero\n[^\n]*MESSAGE Test: one\n"
        "[^\n]*MESSAGE Test: three\n$");
}

TEST(DiskLogDeathTest, LogThatCannotBeOpenedIsSaidOnceAndTheProcessGoesOn)
{
    const CPlace place;
    WriteFile(place.dir.File("log"), "in the way");
    const std::string message =
        "^app: cannot write the log " + place.log + ": Not a directory\n$";
    EXPECT_EXIT(
        {
            CDiskLog log;
            log.Configure(place.Settings());
            for (int i = 0; i < 1000; ++i)
                Put(log, L"lost");
            _exit(0);
        },
        testing::ExitedWithCode(0), message);
}

TEST(DiskLog, LogThatCanBeOpenedAgainTellsWhatWasLost)
{
    const CPlace place;
    WriteFile(place.dir.File("log"), "in the way");
    CDiskLog log;
    Put(log, L"early");
    log.Configure(place.Settings());
    Put(log, L"lost");
    Put(log, L"lost");
    ASSERT_EQ(unlink(place.dir.File("log").c_str()), 0);
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            Put(log, L"again");
            return FileExists(place.log);
        }));
    const auto lines = BareLines(place.log);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "MESSAGE Test: early");
    EXPECT_TRUE(std::regex_match(
        lines[1],
        std::regex("WARNING kza: \\d+ records lost: Not a directory")))
        << lines[1];
    EXPECT_EQ(lines[2], "MESSAGE Test: again");
}

TEST(DiskLog, FullDiskIsToldWithTheCountOnceThereIsRoom)
{
    const CPlace place;
    ASSERT_EQ(mkdir(place.dir.File("log").c_str(), 0700), 0);
    const int status = InChild(
        [&]
        {
            EnterMountNamespace();
            MountTmpfs(place.dir.File("log"), "64k");
            const std::string ballast = place.dir.File("log/ballast");
            WriteFile(ballast, std::string(32768, 'x'));
            CDiskLog log;
            log.Configure(place.Settings());
            for (int i = 0; i < 100; ++i)
                Put(log, std::wstring(1000, L'x'));
            const std::size_t written = ReadLines(place.log).size() - 1;
            unlink(ballast.c_str());
            Put(log, L"room again");
            Put(log, L"and more");

            const auto lines = BareLines(place.log);
            ASSERT_EQ(lines.size(), written + 4);
            for (std::size_t i = 0; i < written; ++i)
                EXPECT_EQ(lines[i], "MESSAGE Test: " + std::string(1000, 'x'));
            EXPECT_EQ(lines[written + 1],
                      "WARNING kza: " + std::to_string(100 - written) +
                          " records lost: No space left on device");
            EXPECT_EQ(lines[written + 2], "MESSAGE Test: room again");
            EXPECT_EQ(lines[written + 3], "MESSAGE Test: and more");
        });
    EXPECT_EQ(status, 0);
}

TEST(DiskLog, RotationThatFailsIsAWarning)
{
    const CPlace place;
    WriteFile(place.log + ".1/in the way", "");
    CLogSettings settings = place.Settings();
    settings.maxSize = 10;
    settings.oldFiles = 1;
    CDiskLog log;
    log.Configure(settings);
    for (int i = 0; i < 10; ++i)
        Put(log, L"text");
    const auto lines = BareLines(place.log);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "WARNING kza: Unable to rotate the log: Directory "
                         "not empty") +
                  std::count(lines.begin(), lines.end(),
                             "WARNING kza: Unable to rotate the log: Is a "
                             "directory"),
              1);
}

TEST(DiskLog, SettingsMayChangeAtAnyTime)
{
    const CPlace first;
    const CPlace second;
    CDiskLog log;
    log.Configure(first.Settings());
    Put(log, L"first");
    CLogSettings settings = second.Settings();
    settings.appName = "a/b";
    log.Configure(settings);
    Put(log, L"second");
    settings.maxSize = 1;
    log.Configure(settings);
    log.Configure(CLogSettings()); // the domain is gone: nothing changes
    Put(log, L"third");
    EXPECT_EQ(BareLines(first.log),
              std::vector<std::string>{"MESSAGE Test: first"});
    EXPECT_EQ(BareLines(second.dir.File("log/a_b.log")),
              std::vector<std::string>{"MESSAGE Test: third"});
    EXPECT_EQ(BareLines(second.dir.File("log/a_b.log.1")),
              std::vector<std::string>{"MESSAGE Test: second"});
}

TEST(DiskLog, ManyThreadsAndProcessesTearAndLoseNothing)
{
    constexpr int kCount = 1500;
    const CPlace place;
    CLogSettings settings = place.Settings();
    settings.maxSize = 64 * 1024;
    settings.oldFiles = CLogSettings::kMostOldFiles;
    std::vector<pid_t> writers;
    fflush(nullptr);
    for (int writer = 0; writer < 3; ++writer)
    {
        writers.push_back(fork());
        if (writers.back() != 0)
            continue;
        CDiskLog log;
        log.Configure(settings);
        WriteFromThreads(log, writer, kCount);
        _exit(0);
    }
    for (const pid_t writer : writers)
    {
        int status = -1;
        waitpid(writer, &status, 0);
        EXPECT_EQ(status, 0);
    }

    std::vector<std::string> lines = BareLines(place.log);
    int files = 1;
    for (; FileExists(place.log + "." + std::to_string(files)); ++files)
    {
        const auto older = BareLines(place.log + "." + std::to_string(files));
        lines.insert(lines.end(), older.begin(), older.end());
    }
    EXPECT_GT(files, 5);
    std::vector<std::string> expected;
    for (int writer = 0; writer < 3; ++writer)
        for (int thread = 0; thread < 4; ++thread)
            for (int i = 0; i < kCount; ++i)
                expected.push_back("MESSAGE Test: " +
                                   NumberedText(writer, thread, i));
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_TRUE(lines == expected);
}

TEST(DiskLog, ForkedChildLogsUnderItsOwnNumbers)
{
    const CProcessPlace place;
    LogToDisk(ELogLevel::Message, "Test", "parent");
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        LogToDisk(ELogLevel::Message, "Test", "child");
        _exit(CurrentThreadId() == getpid() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    LogToDisk(ELogLevel::Message, "Test", "parent");

    const auto lines = ReadLines(place.log);
    ASSERT_EQ(lines.size(), 3U);
    const auto identity = [](pid_t pid, long tid)
    { return " [" + std::to_string(pid) + ":" + std::to_string(tid) + "] "; };
    const long own = CurrentThreadId();
    EXPECT_NE(lines[0].find(identity(getpid(), own)), std::string::npos);
    EXPECT_NE(lines[1].find(identity(child, child)), std::string::npos);
    EXPECT_NE(lines[2].find(identity(getpid(), own)), std::string::npos);
}

TEST(DiskLog, ForkWhileOtherThreadsLogLeavesAWorkingChild)
{
    const CProcessPlace place;
    CLogSettings settings = place.Settings();
    settings.maxSize = 0;
    ProcessLog().Configure(settings);
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(
            [&]
            {
                // The lock is not fair: who takes it again at once may keep
                // the forking thread from it for minutes on a busy machine.
                while (!done)
                {
                    LogToDisk(ELogLevel::Message, "Test", "busy");
                    std::this_thread::sleep_for(std::chrono::microseconds(20));
                }
            });
    for (int i = 0; i < 50; ++i)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            LogToDisk(ELogLevel::Message, "Test", "child");
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    done = true;
    for (std::thread& thread : threads)
        thread.join();
    const auto lines = BareLines(place.log);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "MESSAGE Test: child"),
              50);
}

namespace
{

const wxString* s_handlerText = nullptr;
std::atomic<int> s_handled = 0;

void LogInHandler(int)
{
    const int before = errno;
    LogToDisk(ELogLevel::Warning, *s_handlerText, *s_handlerText);
    ++s_handled;
    errno = before;
}

} // namespace

TEST(DiskLog, RecordMadeInASignalHandlerInsideTheLogIsWrittenToo)
{
    const CProcessPlace place;
    CLogSettings settings = place.Settings();
    settings.maxSize = 0; // all records in one file, to be counted there
    ProcessLog().Configure(settings);
    const wxString text("handler");
    s_handlerText = &text;
    struct sigaction action = {};
    action.sa_handler = LogInHandler;
    sigaction(SIGALRM, &action, nullptr);
    const wxString component("Test");
    const wxString record("record");
    LogToDisk(ELogLevel::Message, component, record);
    int written = 1;
    itimerval timer = {{0, 50}, {0, 50}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    // The timer goes by the clock: the faster the machine, the more records
    // between two signals.
    constexpr int kMostRecords = 100'000;
    for (; s_handled < 2000 && written < kMostRecords; ++written)
        LogToDisk(ELogLevel::Message, component, record);
    timer = {};
    setitimer(ITIMER_REAL, &timer, nullptr);
    signal(SIGALRM, SIG_DFL);

    EXPECT_GT(s_handled, 0);
    const auto lines = BareLines(place.log);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "MESSAGE Test: record"),
              written);
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), "WARNING handler: handler"),
        s_handled);
}

TEST(DiskLog, TakesItsSettingsFromTheDomain)
{
    const CPlace place;
    const std::unique_ptr<CDom, void (*)(CDom*)> dom(
        CDom::New(nullptr, nullptr, nullptr, false),
        [](CDom* one) { one->Release(); });
    dom->Set(DomKey::kPathWork, place.dir.Path());
    dom->Set(DomKey::kName, "app");
    const auto write = [](int count)
    {
        for (int i = 0; i < count; ++i)
            LogToDisk(ELogLevel::Message, "Test", "0123456789");
    };
    write(1);
    const auto line = static_cast<long long>(ReadFile(place.log).size());

    dom->Set(DomKey::kLogMaxSize, 2 * line);
    dom->Set(DomKey::kLogKeep, 1LL);
    write(5);
    EXPECT_EQ(ReadLines(place.log).size(), 2U);
    EXPECT_EQ(ReadLines(place.log + ".1").size(), 2U);
    EXPECT_FALSE(FileExists(place.log + ".2"));

    // As --domain_var gives them.
    dom->Set(DomKey::kLogMaxSize, std::to_string(line));
    dom->Set(DomKey::kLogKeep, "2");
    write(3);
    EXPECT_EQ(ReadLines(place.log).size(), 1U);
    EXPECT_TRUE(FileExists(place.log + ".2"));

    // What makes no sense counts as absent: 10 MiB.
    for (const char* nonsense :
         {"", "-1", "10k", "0x10", " 1", "1.5", "99999999999999999999"})
    {
        dom->Set(DomKey::kLogMaxSize, nonsense);
        write(1);
    }
    EXPECT_EQ(ReadLines(place.log).size(), 8U);
}

TEST(DiskLogDeathTest, ConsoleFollowsItsKey)
{
    const CPlace place;
    EXPECT_EXIT(
        {
            CDom* dom = CDom::New(nullptr, nullptr, nullptr, false);
            dom->Set(DomKey::kPathWork, place.dir.Path());
            dom->Set(DomKey::kName, "app");
            dom->Set(DomKey::kLogConsole, "message");
            LogToDisk(ELogLevel::Info, "Test", "hidden");
            LogToDisk(ELogLevel::Message, "Test", "seen");
            dom->Set(DomKey::kLogConsole, true);
            LogToDisk(ELogLevel::Info, "Test", "too");
            dom->Set(DomKey::kLogConsole, "error");
            LogToDisk(ELogLevel::Warning, "Test", "hidden");
            dom->Remove(DomKey::kLogConsole);
            LogToDisk(ELogLevel::Error, "Test", "no terminal");
            _exit(ReadLines(place.log).size() == 5 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "^[^\n]*MESSAGE Test: seen\n[^\n]*INFO Test: too\n$");
}

TEST(DiskLog, TraceIsWrittenWhateverTheLevel)
{
    const CProcessPlace place;
    const wxLogLevel before = wxLog::GetLogLevel();
    wxLog::SetLogLevel(wxLOG_Info);
    LogTrace("Appl", "/src/Run.cpp", 12, "RunChunk", L"a\nb \u00e4");
    wxLog::SetLogLevel(before);
    EXPECT_EQ(BareLines(place.log),
              std::vector<std::string>{
                  "TRACE Appl: Run.cpp:12 RunChunk a\\nb \u00e4"});
}
