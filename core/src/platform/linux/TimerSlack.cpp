// SPDX-License-Identifier: Apache-2.0
//
// PR_SET_TIMERSLACK as in prctl(2).

#include "kza_core/TimerSlack.h"

#include <sys/prctl.h>

namespace KzaCore
{

CNoTimerSlack::CNoTimerSlack()
    : m_previous(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0))
{
    prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0); // 0 stands for the default
}

CNoTimerSlack::~CNoTimerSlack()
{
    prctl(PR_SET_TIMERSLACK, m_previous, 0, 0, 0);
}

} // namespace KzaCore
