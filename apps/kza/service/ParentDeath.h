// SPDX-License-Identifier: Apache-2.0
//
// What a worker does when its watchdog is gone without having stopped it.

#pragma once

#include <sys/types.h>

/// Lets the system send the calling process SIGTERM when its parent ends.
/// Where it cannot do that, a record of the log says so.
///
/// For a forked child whose parent has one thread, with SIGTERM blocked.
///
/// \param parent  The parent that the child was forked by. When it has ended
///                already, the signal is sent at once.
void StopWithParent(pid_t parent);
