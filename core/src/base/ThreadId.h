// SPDX-License-Identifier: Apache-2.0
//
// The number by which the system's tools know a thread.
//
// Threads: any. May be called in a signal handler and after a fork.

#pragma once

namespace KzaCore
{

/// The calling thread's number, unique within the process while it lives. A
/// system call: callers in a hurry keep it, and forget it after a fork.
[[nodiscard]] long CurrentThreadId();

} // namespace KzaCore
