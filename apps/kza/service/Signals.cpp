// SPDX-License-Identifier: Apache-2.0

#include "service/Signals.h"

#include "base/SignalSet.h"
#include "kza_core/Runnable.h"

#include <csignal>

#include <unistd.h>

namespace
{

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

void IgnoreFileSizeSignal()
{
    Install(SIGXFSZ, SIG_IGN, 0);
}
