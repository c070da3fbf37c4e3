// SPDX-License-Identifier: Apache-2.0
//
// What a child does at the end of its parent.
//
// Threads: for a forked child that has yet to exec. Signal-safe.

#pragma once

#include <sys/types.h>

namespace KzaCore
{

/// Lets the system send the calling process SIGINT when its parent ends, also
/// after it has become another program. Ends the process when the parent has
/// ended already. Does nothing where the system has no such service.
///
/// \param parent  The parent that the child was forked by.
void EndWithParent(pid_t parent);

} // namespace KzaCore
