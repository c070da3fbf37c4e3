// SPDX-License-Identifier: Apache-2.0
//
// No profiler is attached to the process: the marks cost a call and record
// nothing.

#include "kza_core/Profiler.h"

void profiler_idle()
{
}

void profiler_running()
{
}
