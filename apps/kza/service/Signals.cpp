// SPDX-License-Identifier: Apache-2.0
//
// The signal handlers and the table of dispositions.
//
// Handlers here call nothing that allocates or locks, so that it does not
// matter what they interrupt; the second stop request, which leaves through
// exit(), is the one exception.

#include "AgentApp.h"

#include "base/SignalSet.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

wxString _the_pid_file;
pid_t _my_pid = 0;

namespace
{

// External stop requests seen so far.
volatile sig_atomic_t once = 0;

// _the_pid_file as the system takes it: converting needs memory, which a
// handler must not ask for.
std::array<char, PATH_MAX> s_pidFileBytes{};

void Install(int signal, void (*handler)(int), int flags)
{
    struct sigaction action
    {
    };
    action.sa_handler = handler;
    action.sa_flags = flags;
    action.sa_mask = KzaCore::SignalSet({});
    sigaction(signal, &action, nullptr);
}

void RememberPidFile(const wxString& pidFile)
{
    if (pidFile == _the_pid_file)
        return; // the handler may be reading it
    _the_pid_file = pidFile;
    const wxScopedCharBuffer bytes = pidFile.fn_str();
    if (bytes.length() < s_pidFileBytes.size())
        std::memcpy(s_pidFileBytes.data(), bytes.data(), bytes.length() + 1);
}

} // namespace

extern "C" void KzaSignalHandler(int signal)
{
    if (signal == SIGINT || signal == SIGTERM)
        _exit(0);
}

void InstallSignalDispositions()
{
    Install(SIGINT, KzaSignalHandler, SA_RESTART);
    Install(SIGTERM, KzaSignalHandler, SA_RESTART);
    Install(SIGUSR1, KzaSignalHandler, SA_RESTART);
    Install(SIGUSR2, KzaSignalHandler, SA_RESTART);
    Install(KzaCore::CRunnable::SigThreadDelete, KzaSignalHandler, 0);
    Install(SIGHUP, SIG_IGN, SA_RESTART);

    const sigset_t stop = KzaCore::SignalSet({SIGINT, SIGTERM});
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    Install(SIGALRM, KzaSignalHandler, 0);
    Install(SIGPIPE, SIG_IGN, SA_RESTART);
}

void InstallStopRelay(const wxString& pidFile)
{
    RememberPidFile(pidFile);
    _my_pid = getpid();

    struct sigaction action
    {
    };
    action.sa_sigaction = pass_signal;
    action.sa_flags = SA_SIGINFO; // no SA_RESTART: the wait must notice
    // Without the signal itself, which is blocked all the same.
    action.sa_mask = KzaCore::SignalSet({});
    sigaction(SIGTERM, &action, nullptr);
}

extern "C" void pass_signal(int /*signal*/, siginfo_t* info, void* /*context*/)
{
    if (info->si_pid == _my_pid)
        return; // our own broadcast coming back

    const int saved = errno;
    const int before = once;
    once = before + 1;
    if (before == 0)
    {
        if (access(s_pidFileBytes.data(), F_OK) == 0)
            unlink(s_pidFileBytes.data());
        kill(0, SIGTERM);
        errno = saved;
        return;
    }
    kill(0, SIGTERM);
    exit(0);
}
