// SPDX-License-Identifier: Apache-2.0
//
// A timer that runs on the CPU time of one thread.
//
// Threads: any.

#pragma once

#include <chrono>

namespace KzaCore
{

/// Makes the system send SIGPROF to the calling thread after each period of CPU
/// time that the thread has used, for the rest of the thread's life. The system
/// may merge signals: many systems look at such timers only at their own tick.
///
/// \return false with errno set; ENOSYS where the system has no such timer.
[[nodiscard]] bool StartCpuTimer(std::chrono::nanoseconds period);

/// The CPU time that the calling thread has used. Signal-safe.
[[nodiscard]] std::chrono::nanoseconds ThreadCpuTime();

} // namespace KzaCore
