// SPDX-License-Identifier: Apache-2.0
//
// Writing a dump, in the helper: the copy of the crashed process that
// CrashSignals.h describes.
//
// Threads: the helper has one. Async-signal-safe.

#pragma once

#include "crash/linux/CrashSignals.h"

namespace KzaCore
{

/// Writes the dump under a temporary name, renames the dump before it, and
/// gives the new one its final name; after a failure, removes the unfinished
/// dump. Writes to standard error where the dump is, or why there is none.
/// Returns when the process is dead, or a second after the work is done.
void WriteCrashDump(const CCrashPlan& plan, const CCrashCause& cause);

} // namespace KzaCore
