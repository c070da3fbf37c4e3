// SPDX-License-Identifier: Apache-2.0
//
// From the signal to the death of the process. The handler starts a helper
// process, a copy of this one, that writes the dump. It waits for the helper as
// long as the helper makes progress, and then lets the process die of the
// signal as if there had been no handler. Other threads cannot end the process
// in another way meanwhile: exit() blocks from the handler's first step on, and
// the helper keeps the other threads stopped until the process is dead.
//
// Threads: ArmCrashSignals() belongs to the main thread, before others exist.
// The handler may run on any thread; the first to crash writes the dump, the
// others stop where they are.

#pragma once

#include "crash/CrashPlan.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <initializer_list>

#include <sys/types.h>
#include <sys/ucontext.h>

namespace KzaCore
{

/// The signals of a fault.
inline constexpr std::initializer_list<int> kCrashSignals = {
    SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT};

/// The facts that the handler knows about the crash. The object is on the
/// handler's stack; the helper has a copy at the same address.
struct CCrashCause
{
    pid_t process;
    pid_t thread;
    std::int64_t time; // seconds since the epoch
    const siginfo_t* info;
    const ucontext_t* context;
    const char* unfinishedName; // of the dump being written
};

/// Gives a signal the system's own action. Async-signal-safe.
void SetDefaultAction(int signal);

/// Writes the dump and calls NoteCrashServed(). Runs in the helper and must be
/// async-signal-safe. When the helper ends without that call, the handler
/// removes the unfinished dump.
using CrashDumpWriter = void (*)(const CCrashPlan&, const CCrashCause&);

/// Installs the handler. The writer is a parameter because tests use others.
///
/// \return false when the system refuses; errno says why.
bool ArmCrashSignals(const CCrashPlan& plan, CrashDumpWriter writer);

/// Called by the writer while it makes progress: the handler waits on.
void NoteCrashProgress();

/// Called by the writer when the dump is complete, or has failed and is
/// removed: the process dies now, while the helper may live on.
void NoteCrashServed(const CCrashCause& cause);

/// Sleeps for a millisecond. Async-signal-safe: makes the system call directly,
/// because a function that another library puts before the C library's may wait
/// for a lock that the crashed code holds.
void PauseCrashPoll();

} // namespace KzaCore
