// SPDX-License-Identifier: Apache-2.0
//
// POSIX knows no slack: a wait ends as soon as the system can.

#include "kza_core/TimerSlack.h"

namespace KzaCore
{

CNoTimerSlack::CNoTimerSlack() = default;

CNoTimerSlack::~CNoTimerSlack() = default;

} // namespace KzaCore
