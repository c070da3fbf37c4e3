// SPDX-License-Identifier: Apache-2.0
//
// Ending a child together with its parent.
//
// Threads: for a forked child that has yet to exec. Signal-safe.

#pragma once

#include <sys/types.h>

namespace KzaCore
{

/// Makes the system send SIGINT to the calling process when its parent ends,
/// also after an exec. Ends the process when the parent has ended already. Does
/// nothing where the system has no such service.
///
/// \param parent  The process that forked this child.
void EndWithParent(pid_t parent);

} // namespace KzaCore
