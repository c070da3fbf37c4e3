// SPDX-License-Identifier: Apache-2.0

#include "service/StopRelay.h"

#include "base/SignalSet.h"

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

// _the_pid_file in the encoding of file names, for the handler: the conversion
// allocates memory, which a handler must not do.
std::array<char, PATH_MAX> s_pidFileBytes{};

void RememberPidFile(const wxString& pidFile)
{
    if (pidFile == _the_pid_file)
        return;
    _the_pid_file = pidFile;
    const wxScopedCharBuffer bytes = pidFile.fn_str();
    if (bytes.length() < s_pidFileBytes.size())
        std::memcpy(s_pidFileBytes.data(), bytes.data(), bytes.length() + 1);
}

struct sigaction Relay()
{
    struct sigaction action
    {
    };
    action.sa_sigaction = pass_signal;
    action.sa_flags = SA_SIGINFO; // no SA_RESTART: the wait must notice
    action.sa_mask = KzaCore::SignalSet({SIGTERM, SIGINT});
    return action;
}

struct sigaction Ignore()
{
    struct sigaction action
    {
    };
    action.sa_handler = SIG_IGN;
    action.sa_mask = KzaCore::SignalSet({});
    return action;
}

} // namespace

CStopRelay::CStopRelay()
{
    m_blocked = KzaCore::SignalSet({SIGTERM});
    for (const int signal : kLent)
        sigaddset(&m_blocked, signal);
    sigset_t before;
    sigprocmask(SIG_BLOCK, &m_blocked, &before);
    for (int signal = 1; signal < SIGRTMIN; ++signal)
        if (sigismember(&before, signal) == 1)
            sigdelset(&m_blocked, signal);
}

void CStopRelay::Install(const wxString& pidFile)
{
    const sigset_t childEnded = KzaCore::SignalSet({SIGCHLD});
    sigprocmask(SIG_BLOCK, &childEnded, nullptr);

    RememberPidFile(pidFile);
    _my_pid = getpid();

    const struct sigaction relay = Relay();
    sigaction(SIGTERM, &relay, nullptr);
    if (m_isInstalled)
        return;
    m_isInstalled = true;
    const struct sigaction ignore = Ignore();
    for (std::size_t i = 0; i < kLent.size(); ++i)
        sigaction(kLent[i], kLent[i] == SIGINT ? &relay : &ignore,
                  &m_previousActions[i]);
}

void CStopRelay::LeaveToWorker() const
{
    if (m_isInstalled)
        for (std::size_t i = 0; i < kLent.size(); ++i)
            sigaction(kLent[i], &m_previousActions[i], nullptr);

    // SIGTERM stays blocked: the worker inherited the relay as its handler,
    // which would drop a stop request that comes before the script thread waits
    // for one.
    sigset_t lent = m_blocked;
    sigdelset(&lent, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &lent, nullptr);
}

CStopRelay::CDelivery::CDelivery(const CStopRelay& relay) : m_relay(relay)
{
    sigprocmask(SIG_UNBLOCK, &m_relay.m_blocked, nullptr);
}

CStopRelay::CDelivery::~CDelivery()
{
    sigprocmask(SIG_BLOCK, &m_relay.m_blocked, nullptr);
}

extern "C" void pass_signal(int /*signal*/, siginfo_t* info, void* /*context*/)
{
    if (info->si_pid == _my_pid)
        return; // the relay's own broadcast coming back

    const int saved = errno;
    const int before = once;
    once = before + 1;
    if (before == 0 && access(s_pidFileBytes.data(), F_OK) == 0)
        unlink(s_pidFileBytes.data());
    kill(0, SIGTERM);
    if (before > 0)
        exit(0);
    errno = saved;
}
