// SPDX-License-Identifier: Apache-2.0

#include "process/TakenSignals.h"

#include "base/NewDescriptor.h"
#include "base/SignalSet.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr int kTaken[] = {SIGINT, SIGTERM, SIGHUP, SIGCHLD};

// Each signal is two bytes in the pipe: its number, and whether the system sent
// it. A signal that finds the pipe full is dropped; enough others are in it.
std::array<int, 2> s_pipe = {-1, -1};

extern "C" void NoteSignalCB(int signal, siginfo_t* info, void* /*context*/)
{
    const int error = errno;
    const std::array<char, 2> note = {
        static_cast<char>(signal),
        static_cast<char>(info->si_code > 0 ? 1 : 0)};
    const ssize_t written = write(s_pipe[1], note.data(), note.size());
    static_cast<void>(written);
    errno = error;
}

void Install()
{
    struct sigaction action
    {
    };
    action.sa_sigaction = NoteSignalCB;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigset_t taken = SignalSet({});
    for (const int signal : kTaken)
    {
        sigaction(signal, &action, nullptr);
        sigaddset(&taken, signal);
    }
    pthread_sigmask(SIG_UNBLOCK, &taken, nullptr);
}

} // namespace

int TakeSignals()
{
    if (s_pipe[0] != -1)
        return s_pipe[0];
    if (!OpenPipe(s_pipe))
        return -1;
    for (const int end : s_pipe)
        fcntl(end, F_SETFL, O_NONBLOCK);
    Install();
    return s_pipe[0];
}

bool NextTakenSignal(CTakenSignal& signal)
{
    std::array<char, 2> note{};
    if (read(s_pipe[0], note.data(), note.size()) !=
        static_cast<ssize_t>(note.size()))
        return false;
    signal = {note[0], note[1] != 0};
    return true;
}

} // namespace KzaCore
