// SPDX-License-Identifier: Apache-2.0
//
// The number by which the system's tools know a thread.
//
// Threads: any. May be called in a signal handler and after a fork.

#pragma once

namespace KzaCore
{

/// The calling thread's number, unique within the process while the thread
/// lives. Costs a system call; a caller that needs the number often keeps it,
/// and asks again in a forked child.
[[nodiscard]] long CurrentThreadId();

} // namespace KzaCore
