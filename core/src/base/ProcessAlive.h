// SPDX-License-Identifier: Apache-2.0
//
// Whether a process exists.
//
// Threads: any. May be called in a signal handler and after a fork; changes
// errno.

#pragma once

#include <cerrno>
#include <csignal>

#include <sys/types.h>

namespace KzaCore
{

/// True when there is a process of this number, of any owner. A process that
/// has ended counts until its parent has waited for it.
///
/// \param pid  From 1.
[[nodiscard]] inline bool IsProcessAlive(pid_t pid)
{
    return kill(pid, 0) == 0 || errno != ESRCH;
}

} // namespace KzaCore
