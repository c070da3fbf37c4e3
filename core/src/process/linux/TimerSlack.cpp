// SPDX-License-Identifier: Apache-2.0
//
// PR_SET_TIMERSLACK as in prctl(2).

#include "kza_core/TimerSlack.h"

#include <sys/prctl.h>

namespace KzaCore
{

CNoTimerSlack::CNoTimerSlack()
{
    constexpr unsigned long kLeastNs = 1;
    prctl(PR_SET_TIMERSLACK, kLeastNs, 0, 0, 0);
}

CNoTimerSlack::~CNoTimerSlack()
{
    constexpr unsigned long kThreadsDefault = 0;
    prctl(PR_SET_TIMERSLACK, kThreadsDefault, 0, 0, 0);
}

} // namespace KzaCore
