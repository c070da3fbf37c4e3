// SPDX-License-Identifier: Apache-2.0
//
// Marks for a profiler around a blocking wait.
//
// Threads: any; each marks the calling thread only.

#pragma once

#include "kza_core/Export.h"

/// The calling thread is about to wait and does no work until
/// profiler_running().
KZA_API void profiler_idle();

/// The calling thread works again.
KZA_API void profiler_running();
