// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PendingSignal.h"

#include <csignal>
#include <sys/signalfd.h>

namespace KzaCore
{

int OpenPendingSignal(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace KzaCore
