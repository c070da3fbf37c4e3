// SPDX-License-Identifier: Apache-2.0
//
// What the watchdog makes of every kind of wait status.

#include "service/WorkerEnd.h"

#include <gtest/gtest.h>

#include <csignal>

namespace
{

constexpr int Exited(int code)
{
    return code << 8;
}

// What the system adds to the status when there is a core file.
constexpr int kWithCore = 0x80;

constexpr EAfterWorker kRestart = EAfterWorker::Restart;
constexpr EAfterWorker kStopDriver = EAfterWorker::StopDriverAndRestart;
constexpr EAfterWorker kEnd = EAfterWorker::EndService;

struct CRow
{
    int waitStatus;
    wxLogLevel level;
    const char* text; ///< after "Child process "
    EAfterWorker next;
    int serviceStatus;
};

const CRow kTable[] = {
    {Exited(0), wxLOG_Info, "exited with status 0 (exit 0)", kEnd, 0},
    {Exited(1), wxLOG_Info, "exited with status 256 (exit 1)", kEnd, 1},
    {Exited(2), wxLOG_Info, "exited with status 512 (exit 2)", kEnd, 2},
    {Exited(3), wxLOG_Info, "exited with status 768 (exit 3)", kStopDriver, 0},
    {Exited(4), wxLOG_Info, "exited with status 1024 (exit 4)", kEnd, 4},
    {Exited(255), wxLOG_Info, "exited with status 65280 (exit 255)", kEnd, 255},

    {SIGILL, wxLOG_Error,
     "crashed with status 4 (signal 4: Illegal instruction)", kRestart, 0},
    {SIGTRAP, wxLOG_Error,
     "crashed with status 5 (signal 5: Trace/breakpoint trap)", kRestart, 0},
    {SIGABRT, wxLOG_Error, "crashed with status 6 (signal 6: Aborted)",
     kRestart, 0},
    {SIGSEGV, wxLOG_Error,
     "crashed with status 11 (signal 11: Segmentation fault)", kRestart, 0},
    {SIGSEGV | kWithCore, wxLOG_Error,
     "crashed with status 139 (signal 11: Segmentation fault)", kRestart, 0},

    {SIGTERM, wxLOG_Info, "exited with status 15 (signal 15: Terminated)", kEnd,
     0},
    {SIGTERM | kWithCore, wxLOG_Info,
     "exited with status 143 (signal 15: Terminated)", kEnd, 0},

    {SIGHUP, wxLOG_Info, "exited with status 1 (signal 1: Hangup)", kRestart,
     0},
    {SIGINT, wxLOG_Info, "exited with status 2 (signal 2: Interrupt)", kRestart,
     0},
    {SIGBUS, wxLOG_Info, "exited with status 7 (signal 7: Bus error)", kRestart,
     0},
    {SIGFPE, wxLOG_Info,
     "exited with status 8 (signal 8: Floating point exception)", kRestart, 0},
    {SIGKILL, wxLOG_Info, "exited with status 9 (signal 9: Killed)", kRestart,
     0},
    {SIGKILL | kWithCore, wxLOG_Info,
     "exited with status 137 (signal 9: Killed)", kRestart, 0},
    {SIGXCPU, wxLOG_Info,
     "exited with status 24 (signal 24: CPU time limit exceeded)", kRestart, 0},
    {100, wxLOG_Info, "exited with status 100 (signal 100: Unknown signal 100)",
     kRestart, 0},

    // Stopped and continued.
    {0x137F, wxLOG_Info, "exited with status 4991", kRestart, 0},
    {0xFFFF, wxLOG_Info, "exited with status 65535", kRestart, 0},
};

TEST(WorkerEnd, EveryWaitStatusHasItsRecordAndItsConsequence)
{
    for (const CRow& row : kTable)
    {
        SCOPED_TRACE(row.text);
        const CWorkerEnd end = JudgeWorkerEnd(row.waitStatus);
        EXPECT_EQ(end.level, row.level);
        EXPECT_EQ(end.text, "Child process " + wxString(row.text));
        EXPECT_EQ(end.next, row.next);
        EXPECT_EQ(end.serviceStatus, row.serviceStatus);
    }
}

TEST(WorkerEnd, SignalWithoutADescriptionIsUnknown)
{
    EXPECT_EQ(SignalText("Killed"), "Killed");
    EXPECT_EQ(SignalText(nullptr), "Unknown Signal");
}

} // namespace
