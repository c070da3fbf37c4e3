// SPDX-License-Identifier: Apache-2.0
//
// Stopping and reading threads by ptrace.
//
// Threads are seized and not attached: a seized thread stops without a signal,
// so that no signal is left over that the process would act on.

#include "crash/linux/CrashThreads.h"

#include "crash/CrashText.h"
#include "crash/linux/CrashSignals.h"

#include <algorithm>

#include <dirent.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

// The list of threads is read again until it has no new one, because running
// threads may start others while they are being stopped.
constexpr int kLooks = 10;
constexpr int kStopPolls = 500;
constexpr int kDeathPolls = 1000;

pid_t ToThread(const char* name)
{
    pid_t thread = 0;
    for (; *name >= '0' && *name <= '9'; name++)
        thread = thread * 10 + (*name - '0');
    return thread;
}

// The threads already seized or refused, and room for more.
struct CSeizure
{
    pid_t crashed;
    pid_t* threads;
    std::size_t count;
    std::size_t size;
};

bool Seize(CSeizure& seizure, pid_t thread)
{
    pid_t* end = seizure.threads + seizure.count;
    if (thread == 0 || thread == seizure.crashed ||
        seizure.count == seizure.size ||
        std::find(seizure.threads, end, thread) != end)
        return false;
    if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0)
        return false;
    ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
    seizure.threads[seizure.count++] = thread;
    return true;
}

// Seizes the threads that are not seized yet; true when there was one.
bool SeizeNew(CSeizure& seizure, int directory)
{
    alignas(dirent64) static char buffer[16 * 1024];
    bool found = false;
    long size = 0;
    lseek(directory, 0, SEEK_SET);
    while ((size = syscall(SYS_getdents64, directory, buffer, sizeof(buffer))) >
           0)
        for (long at = 0; at < size;)
        {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            found |= Seize(seizure, ToThread(entry->d_name));
            at += entry->d_reclen;
        }
    return found;
}

// Waits for one thread to stop. All threads share the number of polls.
bool AwaitStop(pid_t thread, int& polls)
{
    for (;;)
    {
        int status = 0;
        const pid_t changed = waitpid(thread, &status, WNOHANG | __WALL);
        if (changed == thread)
            return WIFSTOPPED(status);
        if (changed < 0 || polls-- <= 0)
            return false;
        PauseCrashPoll();
    }
}

} // namespace

std::size_t StopThreads(pid_t process,
                        pid_t crashed,
                        pid_t* threads,
                        std::size_t size)
{
    char path[64];
    CCrashText text(path, sizeof(path));
    text.Add("/proc/").AddNumber(process).Add("/task");
    const int directory = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return 0;
    CSeizure seizure = {crashed, threads, 0, size};
    for (int look = 0; look < kLooks && SeizeNew(seizure, directory); look++)
        NoteCrashProgress();
    close(directory);

    int polls = kStopPolls;
    const auto* end = std::remove_if(threads, threads + seizure.count,
                                     [&polls](pid_t thread)
                                     { return !AwaitStop(thread, polls); });
    return static_cast<std::size_t>(end - threads);
}

void AwaitDeathOfThreads()
{
    for (int polls = kDeathPolls; polls > 0; polls--)
    {
        pid_t changed = 0;
        do
            changed = waitpid(-1, nullptr, WNOHANG | __WALL);
        while (changed > 0);
        if (changed < 0)
            return; // none is left
        PauseCrashPoll();
    }
}

} // namespace KzaCore
