// SPDX-License-Identifier: Apache-2.0
//
// A child is made by fork and exec, because posix_spawn() cannot call
// EndWithParent() in the child.
// Between the two the child calls only what a signal handler may call.

#include "process/Child.h"

#include "base/Descriptor.h"
#include "base/NewDescriptor.h"
#include "base/SignalSet.h"
#include "process/EndWithParent.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

void RestoreSignals()
{
    struct sigaction action
    {
    };
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal <= SIGRTMAX; ++signal)
        sigaction(signal, &action, nullptr); // fails for a few, harmlessly
    const sigset_t none = SignalSet({});
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// The child's part. Writes the reason to the pipe when the program cannot run.
[[noreturn]] void Become(char* const* argv, pid_t parent, int failures)
{
    EndWithParent(parent);
    RestoreSignals();
    execv(argv[0], argv);
    const int reason = errno;
    // When the parent is gone, the reason has no reader.
    const ssize_t written = write(failures, &reason, sizeof reason);
    _exit(written == sizeof reason ? 127 : 126);
}

// The reason that the child has written, 0 when its program runs.
int AwaitProgram(int failures)
{
    int reason = 0;
    ssize_t count = 0;
    do
        count = read(failures, &reason, sizeof reason);
    while (count == -1 && errno == EINTR);
    return count == sizeof reason ? reason : 0;
}

// Forks with all signals blocked, so that the child runs no handler of the
// parent.
pid_t ForkWithSignalsBlocked()
{
    const sigset_t all = AllSignalsBut({});
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t pid = fork();
    const int error = errno;
    if (pid != 0)
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return pid;
}

} // namespace

pid_t StartChild(const std::vector<std::string>& words)
{
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);

    std::array<int, 2> ends{};
    if (!OpenPipe(ends))
        return -1;
    const CDescriptor readEnd(ends[0]);
    CDescriptor writeEnd(ends[1]);

    const pid_t parent = getpid();
    const pid_t pid = ForkWithSignalsBlocked();
    if (pid == 0)
        Become(argv.data(), parent, writeEnd.Get());
    if (pid == -1)
        return -1;
    writeEnd.Close();
    const int reason = AwaitProgram(readEnd.Get());
    if (reason == 0)
        return pid;
    waitpid(pid, nullptr, 0);
    errno = reason;
    return -1;
}

} // namespace KzaCore
