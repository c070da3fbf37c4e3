// SPDX-License-Identifier: Apache-2.0
//
// Timed waits that end on time.
//
// Threads: an object belongs to the thread that made it.

#pragma once

#include "kza_core/Export.h"

namespace KzaCore
{

/// While it lives, the thread's timed waits end as soon as their time has come.
/// Linux may otherwise let 50 microseconds pass, to end several waits with one
/// wake-up of the processor. Its end puts back the slack that the thread began
/// with. Without effect where the system has no such thing.
class KZA_API CNoTimerSlack
{
public:
    CNoTimerSlack();
    ~CNoTimerSlack();

    CNoTimerSlack(const CNoTimerSlack&) = delete;
    CNoTimerSlack& operator=(const CNoTimerSlack&) = delete;
};

} // namespace KzaCore
