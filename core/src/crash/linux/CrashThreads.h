// SPDX-License-Identifier: Apache-2.0
//
// The threads of the crashed process.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include <cstddef>

#include <sys/types.h>

namespace KzaCore
{

/// The largest number of threads in a dump.
inline constexpr std::size_t kMaxCrashThreads = 4096;

/// Stops every thread of the process but one.
///
/// Leaves out a thread that the system does not allow to be stopped, or that
/// does not stop within half a second.
///
/// \param crashed  The thread that is in the handler already.
/// \param threads  Out: the threads that have stopped.
/// \param size     Room in `threads`.
///
/// \return the number of stopped threads.
std::size_t StopThreads(pid_t process,
                        pid_t crashed,
                        pid_t* threads,
                        std::size_t size);

/// Waits until all threads that were stopped are dead, for a second at most;
/// they go on when the helper ends.
void AwaitDeathOfThreads();

} // namespace KzaCore
