// SPDX-License-Identifier: Apache-2.0
//
// The handler of the signals of a fault.
//
// The crashing process may hold any lock, and any of its memory may be broken.
// The handler therefore only copies the process, waits for the copy, and dies.
// It makes the copy by a plain system call, so that no library's fork handlers
// run. The copy, called the helper, does all reading and writing.
//
// One thread of a process moves through these states; g_crashing names it:
//
//   1. It claims g_crashing. Threads that crash later, and threads that call
//      exit(), stop for good.
//   2. It starts the helper and checks every millisecond whether the helper is
//      done, has made progress, or has ended.
//   3. It sends itself the signal again, now with the system's own action. The
//      helper keeps the other threads stopped until the process is dead.
//
// A fault of that thread inside the handler leads directly to the last state.

#include "crash/linux/CrashSignals.h"

#include "base/SignalSet.h"
#include "crash/CrashText.h"

#include <cerrno>
#include <cstdlib>
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

// A helper that makes no progress for this long is killed.
constexpr std::int64_t kPatienceMs = 5000;
// A killed helper is waited for no longer than this.
constexpr std::int64_t kRemovalMs = 1000;

CCrashPlan g_plan;
CrashDumpWriter g_writer = nullptr;

// The helper's messages to the process that waits for it. The page is mapped
// once and shared across forks, so a worker shares it with its watchdog: when
// both crash at once, each may wait a little longer than needed.
struct CHelperNews
{
    std::atomic<unsigned> progress{0};
    std::atomic<pid_t> servedProcess{0};
};

CHelperNews* g_news = nullptr;

// The process id (upper half) and the thread id of the thread that makes a
// dump; 0 without one. The process id is included because a child that is
// forked meanwhile inherits the value.
std::atomic<std::uint64_t> g_crashing{0};

// The signal and the helper of that thread, which alone writes them.
int g_signal = 0;
pid_t g_helper = 0;

std::int64_t NowMs()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// Ends the process by a direct system call. A function that another library
// puts before the C library's may wait for a lock that the crashed code holds;
// so this file ends and waits by system calls.
[[noreturn]] void EndNow(int status)
{
    for (;;)
        syscall(SYS_exit_group, status);
}

[[noreturn]] void StopHere()
{
    for (;;)
        pause();
}

// The calling process and thread, in the form of g_crashing.
std::uint64_t CrashingIdentity()
{
    return static_cast<std::uint64_t>(getpid()) << 32U |
           static_cast<std::uint32_t>(gettid());
}

// Lets the calling thread receive a crash signal that was sent to the process
// and not yet delivered: a change of the thread's mask delivers it.
void TakePendingCrashSignal()
{
    const sigset_t crashSignals = SignalSet(kCrashSignals);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &crashSignals, &before);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// Runs at exit(). When another thread has crashed, this one stops: otherwise
// the process would end with the status of exit(), and the crash would be taken
// for an orderly end.
extern "C" void HoldExitDuringCrashCB()
{
    TakePendingCrashSignal();
    const std::uint64_t crashing = g_crashing.load();
    const std::uint64_t self = CrashingIdentity();
    if (crashing >> 32U == self >> 32U && crashing != self)
        StopHere();
}

// Ends the process at once, by the signal.
[[noreturn]] void DieNow(int signal)
{
    if (g_helper > 0)
        kill(g_helper, SIGKILL);
    SetDefaultAction(signal);
    const sigset_t unblocked = SignalSet({signal});
    sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
    syscall(SYS_tgkill, getpid(), gettid(), signal);
    // The first process of a container survives the signal.
    EndNow(128 + signal);
}

// Sends the signal again with its original information; it is delivered when
// the handler returns. A core file then shows the fault and not this handler.
// Returning alone would not be enough, because not every signal comes from an
// instruction that faults again.
void DieOnReturn(int signal, siginfo_t* info)
{
    // The first process of a container receives no signal that it has no
    // handler for.
    if (getpid() == 1)
        DieNow(signal);
    SetDefaultAction(signal);
    const sigset_t blocked = SignalSet({signal});
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0)
        DieNow(signal);
}

pid_t StartHelper(const CCrashCause& cause)
{
    // On hosts where only a parent may trace a process, the helper, a child,
    // needs this permission. It is given to every process that has the other
    // rights to trace this one, which is about to die.
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
    // Without an exit signal in its flags, the helper's end is not reported to
    // another thread of this process that waits for any child.
    const long helper = syscall(SYS_clone, 0, nullptr, nullptr, nullptr, 0);
    if (helper == 0)
    {
        g_writer(g_plan, cause);
        EndNow(0);
    }
    return static_cast<pid_t>(helper);
}

// True when the dump is complete, or has failed and is removed.
bool HasServed()
{
    return g_news->servedProcess.load() == getpid();
}

bool HasEnded(pid_t helper)
{
    const pid_t ended = waitpid(helper, nullptr, WNOHANG | __WALL);
    return ended > 0 || (ended < 0 && errno != EINTR);
}

// Waits until the helper has done its work or has ended. False when the helper
// makes no progress for `patienceMs`.
bool AwaitHelper(pid_t helper, std::int64_t patienceMs)
{
    unsigned seen = g_news->progress.load();
    std::int64_t deadline = NowMs() + patienceMs;
    while (NowMs() < deadline)
    {
        if (HasServed() || HasEnded(helper))
            return true;
        const unsigned present = g_news->progress.load();
        if (present != seen)
            deadline = NowMs() + patienceMs;
        seen = present;
        PauseCrashPoll();
    }
    return false;
}

void WriteDump(const CCrashCause& cause)
{
    // An earlier process of the same id may have crashed and left its id.
    g_news->servedProcess.store(0);
    g_helper = StartHelper(cause);
    if (g_helper < 0)
        return;
    if (!AwaitHelper(g_helper, kPatienceMs))
    {
        kill(g_helper, SIGKILL);
        AwaitHelper(g_helper, kRemovalMs);
    }
    // A helper that ended before it was done has left an unfinished dump.
    if (!HasServed())
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
    const CCrashCause cause = {getpid(),
                               gettid(),
                               now.tv_sec,
                               info,
                               static_cast<const ucontext_t*>(context),
                               unfinished};
    WriteDump(cause);
}

extern "C" void CrashSignalCB(int signal, siginfo_t* info, void* context)
{
    const std::uint64_t self = CrashingIdentity();
    std::uint64_t crashing = g_crashing.load();
    while (crashing >> 32U != self >> 32U)
        if (g_crashing.compare_exchange_weak(crashing, self))
        {
            g_signal = signal;
            LeaveDump(info, context);
            DieOnReturn(signal, info);
            return;
        }
    if (crashing != self)
        StopHere();
    // This thread is in the handler already. A signal that a process has sent
    // is ignored; a fault means that the handler itself cannot go on.
    if (info->si_code > 0)
        DieNow(g_signal);
}

// The preparations that are made once, also when the process is armed again.
bool PrepareOnce()
{
    if (g_news != nullptr)
        return true;
    void* page = mmap(nullptr, sizeof(CHelperNews), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED || std::atexit(HoldExitDuringCrashCB) != 0)
        return false;
    g_news = new (page) CHelperNews;
    return true;
}

} // namespace

bool ArmCrashSignals(const CCrashPlan& plan, CrashDumpWriter writer)
{
    g_plan = plan;
    g_writer = writer;
    if (!PrepareOnce())
        return false;
    struct sigaction action = {};
    action.sa_sigaction = CrashSignalCB;
    // A fault inside the handler comes back to it, so that the process still
    // dies of the first signal.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    action.sa_mask = AllSignalsBut(kCrashSignals);
    for (const int signal : kCrashSignals)
        if (sigaction(signal, &action, nullptr) != 0)
            return false;
    return true;
}

void SetDefaultAction(int signal)
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

void NoteCrashProgress()
{
    g_news->progress.fetch_add(1);
}

void NoteCrashServed(const CCrashCause& cause)
{
    g_news->servedProcess.store(cause.process);
}

void PauseCrashPoll()
{
    constexpr long kMillisecondNs = 1000000;
    const timespec time = {0, kMillisecondNs};
    syscall(SYS_nanosleep, &time, nullptr);
}

} // namespace KzaCore
