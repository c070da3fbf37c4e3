// SPDX-License-Identifier: Apache-2.0
//
// Stopping a worker whose watchdog has ended without stopping it.

#pragma once

#include <sys/types.h>

/// Makes the system send SIGTERM to the calling process when its parent ends.
/// On a system that cannot do that, logs it.
///
/// For a forked child whose parent has one thread, with SIGTERM blocked.
///
/// \param parent  The process that forked this child. When it has ended
///                already, the signal is sent at once.
void StopWithParent(pid_t parent);
