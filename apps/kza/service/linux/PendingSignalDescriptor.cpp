// SPDX-License-Identifier: Apache-2.0

#include "service/PendingSignalDescriptor.h"

#include "base/SignalSet.h"

#include <sys/signalfd.h>

int OpenPendingSignal(int signal)
{
    const sigset_t set = KzaCore::SignalSet({signal});
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}
