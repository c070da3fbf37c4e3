// SPDX-License-Identifier: Apache-2.0

#include "kza_core/PendingSignal.h"

#include "base/SignalSet.h"

#include <sys/signalfd.h>

namespace KzaCore
{

int OpenPendingSignal(int signal)
{
    const sigset_t set = SignalSet({signal});
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace KzaCore
