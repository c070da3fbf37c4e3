// SPDX-License-Identifier: Apache-2.0
//
// The threads of the crashed process and their registers.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/MinidumpFormat.h"

#include <cstddef>

#include <sys/types.h>
#include <sys/ucontext.h>

namespace KzaCore
{

/// The most threads that a dump tells of.
inline constexpr std::size_t kMaxCrashThreads = 4096;

/// Stops every thread of the process but one.
///
/// A thread that the system will not let us stop, or that does not stop
/// within half a second, is left out.
///
/// \param crashed  The thread that is in the handler already.
/// \param threads  Out: those that have stopped.
/// \param size     Room in `threads`.
///
/// \return how many have.
std::size_t StopThreads(pid_t process,
                        pid_t crashed,
                        pid_t* threads,
                        std::size_t size);

/// Waits until all threads that were stopped are dead, for a second at most;
/// they go on when the helper ends.
void AwaitDeathOfThreads();

/// The registers of a stopped thread.
bool ReadRegisters(pid_t thread, Minidump::ContextAmd64& context);

/// The registers at the fault, as the handler got them.
void TakeRegisters(const ucontext_t& from, Minidump::ContextAmd64& context);

} // namespace KzaCore
