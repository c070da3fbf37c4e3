// SPDX-License-Identifier: Apache-2.0
//
// Composing the note. Lua is asked in another copy of the process, which may
// fault or hang.

#include "crash/linux/CrashNote.h"

#include "crash/CrashLua.h"
#include "crash/CrashText.h"

#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

char kza_crash_note[kCrashNoteSize];

namespace KzaCore
{

namespace
{

// The longest pause between two outputs of the process that reads Lua's call
// chain.
constexpr int kLuaPatienceMs = 1000;

struct CSignalName
{
    int signal;
    const char* name;
};

constexpr CSignalName kSignalNames[] = {
    {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGILL, "SIGILL"},
    {SIGFPE, "SIGFPE"},   {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"}};

const char* NameOfSignal(int signal)
{
    for (const CSignalName& entry : kSignalNames)
        if (entry.signal == signal)
            return entry.name;
    return "unknown";
}

void AddCause(CCrashText& note, const CCrashCause& cause)
{
    const siginfo_t& info = *cause.info;
    note.Add("process: ").AddNumber(cause.process).Add("\n");
    note.Add("thread: ").AddNumber(cause.thread).Add("\n");
    note.Add("signal: ").AddNumber(info.si_signo).Add(" (");
    note.Add(NameOfSignal(info.si_signo)).Add(")\n");
    note.Add("code: ").AddNumber(info.si_code).Add("\n");
    if (info.si_code > 0)
        note.Add("address: ")
            .AddHex(reinterpret_cast<std::uintptr_t>(info.si_addr))
            .Add("\n");
    else
        note.Add("sender: ").AddNumber(info.si_pid).Add("\n");
}

// Collects the output of the process that reads Lua's call chain, until the
// process ends, pauses for too long, or the buffer is full.
std::size_t Collect(int from, char* buffer, std::size_t size)
{
    std::size_t length = 0;
    pollfd ready = {from, POLLIN, 0};
    while (length < size && poll(&ready, 1, kLuaPatienceMs) > 0)
    {
        const ssize_t count = read(from, buffer + length, size - length);
        if (count <= 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    return length;
}

std::size_t ReadLuaTracebacks(char* buffer, std::size_t size)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return 0;
    // A copy of the helper: when Lua's data are broken, this copy faults or
    // hangs, and the dump is complete all the same.
    const long reader = syscall(SYS_clone, 0, nullptr, nullptr, nullptr, 0);
    if (reader == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        WriteLuaTracebacks(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    const std::size_t length = reader > 0 ? Collect(ends[0], buffer, size) : 0;
    close(ends[0]);
    if (reader > 0)
    {
        kill(static_cast<pid_t>(reader), SIGKILL);
        waitpid(static_cast<pid_t>(reader), nullptr, __WALL);
    }
    return length;
}

} // namespace

std::size_t ComposeCrashNote(const CCrashPlan& plan, const CCrashCause& cause)
{
    CCrashText note(kza_crash_note, sizeof(kza_crash_note));
    note.Add("application: ").Add(plan.application).Add("\n");
    note.Add("version: ").Add(plan.version).Add("\n");
    note.Add("time: ").AddTime(cause.time).Add("\n");
    AddCause(note, cause);
    note.Add("memory: ").Add(plan.full ? "full\n" : "stacks\n");

    static char lua[kCrashNoteSize / 2];
    const std::size_t length = ReadLuaTracebacks(lua, sizeof(lua));
    if (length == 0)
        note.Add("lua: not running\n");
    else
        note.Add("lua:\n").Add(lua, length);
    return note.Length();
}

} // namespace KzaCore
