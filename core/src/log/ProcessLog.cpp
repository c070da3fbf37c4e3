// SPDX-License-Identifier: Apache-2.0

#include "log/ProcessLog.h"

#include <cstdlib>

#include <pthread.h>

namespace KzaCore
{

namespace
{

// The locks are held from one callback to the next, across the fork.
void BeforeForkCB() KZA_UNCHECKED_LOCKS
{
    ProcessLog().BeforeFork();
    HoldTimeZone();
}

void AfterForkInParentCB() KZA_UNCHECKED_LOCKS
{
    ReleaseTimeZone();
    ProcessLog().AfterForkInParent();
}

void AfterForkInChildCB() KZA_UNCHECKED_LOCKS
{
    ReleaseTimeZone();
    ProcessLog().AfterForkInChild();
}

void OnExitCB()
{
    ProcessLog().PrintEarly();
}

CDiskLog* MakeProcessLog()
{
    pthread_atfork(BeforeForkCB, AfterForkInParentCB, AfterForkInChildCB);
    static_cast<void>(std::atexit(OnExitCB));
    return new CDiskLog;
}

} // namespace

CDiskLog& ProcessLog()
{
    static CDiskLog* const s_log = MakeProcessLog();
    return *s_log;
}

} // namespace KzaCore
