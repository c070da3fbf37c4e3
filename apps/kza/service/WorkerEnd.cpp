// SPDX-License-Identifier: Apache-2.0

#include "service/WorkerEnd.h"

#include <csignal>
#include <cstring>

#include <sys/wait.h>

namespace
{

// A worker ends with this code when the kernel driver is to be stopped before
// the next worker starts.
constexpr int kExitStopDriver = 3;

bool IsCrashSignal(int signal)
{
    return signal == SIGILL || signal == SIGTRAP || signal == SIGABRT ||
           signal == SIGSEGV;
}

CWorkerEnd JudgeExit(int waitStatus)
{
    const int code = WEXITSTATUS(waitStatus);
    CWorkerEnd end;
    end.text.Printf("Child process exited with status %d (exit %d)", waitStatus,
                    code);
    if (code == kExitStopDriver)
    {
        end.next = EAfterWorker::StopDriverAndRestart;
        return end;
    }
    end.next = EAfterWorker::EndService;
    end.serviceStatus = code;
    return end;
}

CWorkerEnd JudgeSignal(int waitStatus)
{
    const int signal = WTERMSIG(waitStatus);
    const bool isCrash = IsCrashSignal(signal);
    CWorkerEnd end;
    end.level = isCrash ? wxLOG_Error : wxLOG_Info;
    end.text.Printf("Child process %s with status %d (signal %d: %s)",
                    isCrash ? "crashed" : "exited", waitStatus, signal,
                    SignalText(strsignal(signal)));
    // A worker that dies of SIGTERM was stopped on purpose.
    if (signal == SIGTERM)
        end.next = EAfterWorker::EndService;
    return end;
}

} // namespace

wxString SignalText(const char* description)
{
    return description != nullptr ? description : "Unknown Signal";
}

CWorkerEnd JudgeWorkerEnd(int waitStatus)
{
    if (WIFEXITED(waitStatus))
        return JudgeExit(waitStatus);
    if (WIFSIGNALED(waitStatus))
        return JudgeSignal(waitStatus);
    // A stopped or continued worker, which waitpid() reports only on request.
    CWorkerEnd end;
    end.text.Printf("Child process exited with status %d", waitStatus);
    return end;
}
