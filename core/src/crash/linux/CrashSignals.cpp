// SPDX-License-Identifier: Apache-2.0
//
// The handler of the signals of a fault.
//
// The crashing process may hold any lock and have any of its memory broken.
// The handler therefore only copies the process (a plain system call, so that
// no library's fork hooks run), waits, and dies. All reading and writing is
// done by the copy.

#include "crash/linux/CrashSignals.h"

#include "crash/CrashText.h"

#include <cerrno>
#include <ctime>
#include <new>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// A helper that gets nowhere for this long is given up.
constexpr std::int64_t kPatienceMs = 5000;
// After which the system has this long to remove it.
constexpr std::int64_t kRemovalMs = 1000;

CrashPlan g_plan;
CrashDumpWriter g_writer = nullptr;

// Shared with the helper. A forked worker shares it with its watchdog too;
// both crashing at once would only make them more patient.
std::atomic<unsigned>* g_progress = nullptr;

// Process and thread that are leaving a dump; the process is part of it
// because a child forked meanwhile inherits the value.
std::atomic<std::uint64_t> g_crashing{0};
int g_signal = 0;
pid_t g_helper = 0;

std::int64_t NowMs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

void SetDisposition(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

// What other libraries put before the C library's functions may wait for a
// lock that the crashed code holds, so ends and waits go to the system
// directly.
[[noreturn]] void EndNow(int status)
{
    for (;;)
        syscall(SYS_exit_group, status);
}

// Ends the process here and now, by the signal.
[[noreturn]] void DieNow(int signal)
{
    if (g_helper > 0)
        kill(g_helper, SIGKILL);
    SetDisposition(signal, SIG_DFL);
    sigset_t unblocked;
    sigemptyset(&unblocked);
    sigaddset(&unblocked, signal);
    sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
    syscall(SYS_tgkill, getpid(), gettid(), signal);
    // Only the first process of a container survives that.
    EndNow(128 + signal);
}

// The signal comes again, with all that was known about it, when the handler
// returns: a core file then shows the fault and not this handler. Returning
// alone would not do, for not every signal comes from an instruction that
// faults again.
void DieOnReturn(int signal, siginfo_t* info)
{
    SetDisposition(signal, SIG_DFL);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, signal);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0)
        DieNow(signal);
}

pid_t StartHelper(const CrashCause& cause)
{
    // Where a process may only be traced by its parents, the helper may not
    // trace this one until told so. This process is as good as dead: anyone
    // who could trace it otherwise may.
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    // No signal at its end: another thread that waits for any child of its
    // own must not be given this one.
    const long helper = syscall(SYS_clone, 0, nullptr, nullptr, nullptr, 0);
    if (helper == 0)
        EndNow(g_writer(g_plan, cause));
    return static_cast<pid_t>(helper);
}

// Waits until the helper is gone or the time is up, which counts from its
// last sign of progress. Returns false when it is still there.
bool AwaitEnd(pid_t helper, std::int64_t patienceMs, int& status)
{
    unsigned seen = g_progress->load();
    std::int64_t deadline = NowMs() + patienceMs;
    while (NowMs() < deadline)
    {
        const pid_t ended = waitpid(helper, &status, WNOHANG | __WALL);
        if (ended > 0 || (ended < 0 && errno != EINTR))
            return true;
        const unsigned present = g_progress->load();
        if (present != seen)
            deadline = NowMs() + patienceMs;
        seen = present;
        PauseCrashPoll();
    }
    return false;
}

void WriteDump(const CrashCause& cause)
{
    g_helper = StartHelper(cause);
    if (g_helper < 0)
        return;
    // Stands when somebody else has waited for the helper.
    int status = W_EXITCODE(ECHILD, 0);
    if (!AwaitEnd(g_helper, kPatienceMs, status))
    {
        kill(g_helper, SIGKILL);
        AwaitEnd(g_helper, kRemovalMs, status);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        unlinkat(g_plan.directoryFd, cause.unfinishedName, 0);
}

void LeaveDump(const siginfo_t* info, const void* context)
{
    char unfinished[sizeof(g_plan.fileName) + 32];
    CCrashText name(unfinished, sizeof(unfinished));
    name.Add(g_plan.fileName).Add(".").AddNumber(getpid());
    name.Add(kUnfinishedDumpSuffix);
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const CrashCause cause = {getpid(),
                              gettid(),
                              now.tv_sec,
                              info,
                              static_cast<const ucontext_t*>(context),
                              unfinished};
    WriteDump(cause);
}

[[noreturn]] void StopHere()
{
    for (;;)
        pause();
}

extern "C" void CrashSignalCB(int signal, siginfo_t* info, void* context)
{
    const auto process = static_cast<std::uint64_t>(getpid());
    const std::uint64_t self =
        process << 32U | static_cast<std::uint32_t>(gettid());
    std::uint64_t crashing = g_crashing.load();
    while (crashing >> 32U != process)
        if (g_crashing.compare_exchange_weak(crashing, self))
        {
            g_signal = signal;
            LeaveDump(info, context);
            DieOnReturn(signal, info);
            return;
        }
    if (crashing != self)
        StopHere();
    // This thread is in the handler already. A signal that somebody sent
    // changes nothing; a fault means that the handler itself is broken.
    if (info->si_code > 0)
        DieNow(g_signal);
}

bool ShareProgress()
{
    if (g_progress != nullptr)
        return true;
    void* page = mmap(nullptr, sizeof(*g_progress), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return false;
    g_progress = new (page) std::atomic<unsigned>(0);
    return true;
}

} // namespace

bool ArmCrashSignals(const CrashPlan& plan, CrashDumpWriter writer)
{
    g_plan = plan;
    g_writer = writer;
    if (!ShareProgress())
        return false;
    struct sigaction action = {};
    action.sa_sigaction = CrashSignalCB;
    // A fault inside the handler comes back to it, so that the process still
    // dies of the first signal.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigfillset(&action.sa_mask);
    for (const int signal : kCrashSignals)
        sigdelset(&action.sa_mask, signal);
    for (const int signal : kCrashSignals)
        if (sigaction(signal, &action, nullptr) != 0)
            return false;
    return true;
}

void NoteCrashProgress()
{
    g_progress->fetch_add(1);
}

void PauseCrashPoll()
{
    constexpr long kMillisecondNs = 1000000;
    const timespec pause = {0, kMillisecondNs};
    syscall(SYS_nanosleep, &pause, nullptr);
}

} // namespace KzaCore
