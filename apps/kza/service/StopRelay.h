// SPDX-License-Identifier: Apache-2.0
//
// The watchdog's signals: stop requests are relayed to its worker, and other
// signals do not end it.
//
// The second stop request leaves the process by exit() inside the handler, and
// exit() runs code that allocates memory and takes locks. The watchdog's
// signals are therefore blocked while it computes. They are delivered only
// while a CDelivery lives, which the watchdog makes around its waits: there the
// handler interrupts nothing that exit() needs.
//
// Threads: the watchdog's only thread. A process has one relay at most.

#pragma once

#include <wx/string.h>

#include <array>
#include <csignal>

#include <sys/types.h>

class CStopRelay
{
public:
    /// Blocks the watchdog's signals: SIGTERM, SIGINT, SIGHUP, SIGPIPE,
    /// SIGUSR1, SIGUSR2 and SIGALRM. They stay blocked when the object is
    /// destroyed, which happens shortly before the end of the process.
    CStopRelay();

    CStopRelay(const CStopRelay&) = delete;
    CStopRelay& operator=(const CStopRelay&) = delete;

    /// For the watchdog, after each fork of a worker: blocks SIGCHLD too, makes
    /// pass_signal() the handler of SIGTERM and SIGINT and ignores the others.
    ///
    /// \param pidFile  The file that the first stop request removes.
    void Install(const wxString& pidFile);

    /// For a forked worker: puts mask and dispositions back as they were before
    /// Install(), those of SIGTERM and SIGCHLD excepted. SIGTERM stays blocked.
    void LeaveToWorker() const;

    /// While the object exists, the watchdog's signals are delivered. Signals
    /// that came before are delivered at its construction.
    class CDelivery
    {
    public:
        explicit CDelivery(const CStopRelay& relay);
        ~CDelivery();

        CDelivery(const CDelivery&) = delete;
        CDelivery& operator=(const CDelivery&) = delete;

    private:
        const CStopRelay& m_relay;
    };

private:
    /// The signals whose dispositions a later worker gets back: the watchdog's
    /// signals but SIGTERM.
    static constexpr std::array kLent = {SIGINT,  SIGHUP,  SIGPIPE,
                                         SIGUSR1, SIGUSR2, SIGALRM};

    sigset_t m_blocked; // by the constructor, without those blocked before
    bool m_isInstalled = false;
    std::array<struct sigaction, kLent.size()> m_previousActions{};
};

/// The relay itself, a handler of the watchdog. The first stop request removes
/// the pid file and sends SIGTERM to the process group; a further one sends it
/// again and ends the process with status 0.
extern "C" void pass_signal(int signal, siginfo_t* info, void* context);

/// The pid file and the process id that the handler uses; set before the
/// handler is installed, constant afterwards.
extern wxString _the_pid_file;
extern pid_t _my_pid;
