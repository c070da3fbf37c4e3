// SPDX-License-Identifier: Apache-2.0
//
// From the signal to the death of the process: the handler starts a helper
// process, a copy of this one, that writes the dump; it waits for the helper
// as long as that makes progress, and then lets the process die of the signal
// as if there had been no handler. Nothing that another thread does meanwhile
// gives the process another end: exit() waits from the handler's first step on,
// and the helper keeps the other threads stopped until the process is dead.
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

/// What the handler knows. Lives on the handler's stack; the helper has a
/// copy at the same address.
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

/// Writes the dump and calls NoteCrashServed(); runs in the helper,
/// async-signal-safe. An unfinished dump is removed when the helper ends
/// without that call.
using CrashDumpWriter = void (*)(const CCrashPlan&, const CCrashCause&);

/// Installs the handler. The writer is a parameter for the tests.
///
/// \return false when the system refuses; errno says why.
bool ArmCrashSignals(const CCrashPlan& plan, CrashDumpWriter writer);

/// The writer tells the waiting handler that it is getting on.
void NoteCrashProgress();

/// The writer is done with the dump, or with the attempt, and has left no
/// unfinished one: the process dies now, while the helper may live on.
void NoteCrashServed(const CCrashCause& cause);

/// Lets a millisecond pass between two looks. Async-signal-safe: it is a system
/// call, since functions that other libraries put before those of the C library
/// may wait for a lock that the crashed code holds.
void PauseCrashPoll();

} // namespace KzaCore
